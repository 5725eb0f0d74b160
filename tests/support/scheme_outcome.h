// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utility>
#include <vector>

#include "findings/recorder.h"
#include "signing_block/zip_format.h"
#include "tests/support/log_capture.h"
#include "tests/support/signers.h"

namespace Quill {

// What a scheme returns and logs for the value of a pair.
struct SchemeOutcome {
  bool isParsed = false;
  bool isVerified = false;
  bool hasReason = false;  // of a refusal
  std::vector<ByteVector> publicKeys;
  std::string lines;
};

enum class Stage { kParse, kVerify };

// Runs a scheme over a pair in memory of exactly its size. `Scheme` is ApkSigningBlockV2 or
// ApkSigningBlockV3.
template <typename Scheme>
SchemeOutcome RunScheme(Stage last, const ByteVector& value, const Regions& regions = {}) {
  const ByteVector pair = Wire().U64(4 + value.size()).U32(0).Bytes(value);
  LogCapture log;
  const FindingsRecorder recorder;
  Scheme scheme(reinterpret_cast<const ApkSignatureBlock*>(pair.data()), Chunks(regions));
  SchemeOutcome outcome;
  outcome.isParsed = scheme.Parse();
  if (last == Stage::kVerify) outcome.isVerified = scheme.Verify();
  outcome.hasReason = !recorder.Get().refusals.empty();
  static_cast<void>(scheme.GetPublicKeys(outcome.publicKeys));  // false when there are none
  outcome.lines = log.Take();
  return outcome;
}

}  // namespace Quill
