// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "fuzz/signers_mutator.h"
#include "tests/support/scheme_outcome.h"

namespace Quill {

// Runs a scheme on the value of a pair, and checks the rules that hold for every value.
template <typename Scheme>
void CheckScheme(const ByteVector& value) {
  const auto isGood = [](const SchemeOutcome& outcome) {
    return outcome.isParsed && outcome.isVerified;
  };
  const SchemeOutcome outcome = RunScheme<Scheme>(Stage::kVerify, value, SignedRegions());
  for (const ByteVector& key : outcome.publicKeys) {
    Require(key.size() <= value.size(), "a public key comes from the value");
  }
  if (!isGood(outcome)) {
    Require(!outcome.lines.empty(), "a refusal is logged");
    return;
  }
  Require(!outcome.publicKeys.empty(), "a good value has a public key");

  size_t pick = 0;
  for (const uint8_t byte : value) pick = pick * 31 + byte;
  Regions otherRegions = SignedRegions();
  ByteVector& region = otherRegions[pick % otherRegions.size()];
  region[pick / 8 % region.size()] ^= static_cast<uint8_t>(1U << pick % 8);
  Require(!isGood(RunScheme<Scheme>(Stage::kVerify, value, otherRegions)),
          "a package whose contents changed is refused");
  ByteVector otherValue = value;
  Require(!ChangeSignedData(otherValue, pick) ||
              !isGood(RunScheme<Scheme>(Stage::kVerify, otherValue, SignedRegions())),
          "a value whose signed data changed is refused");
}

}  // namespace Quill
