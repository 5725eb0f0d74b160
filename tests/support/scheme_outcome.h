// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utility>
#include <vector>

#include "signing_block/raw_data.h"
#include "signing_block/zip_format.h"
#include "tests/support/log_capture.h"
#include "tests/support/signers.h"

namespace Quill {

// What a scheme makes of a pair's value, which lies in a block of exactly its size.
struct SchemeOutcome {
  bool isParsed = false;
  bool isVerified = false;
  std::vector<ByteVector> publicKeys;
  std::string lines;
};

enum class Stage { kParse, kVerify };

// `Scheme` is ApkSigningBlockV2 or ApkSigningBlockV3; every region is one chunk.
template <typename Scheme>
SchemeOutcome RunScheme(Stage last, const ByteVector& value, const Regions& regions = {}) {
  const ByteVector pair = Wire().U64(4 + value.size()).U32(0).Bytes(value);
  std::vector<RawData> chunks;
  for (const ByteVector& region : regions) chunks.push_back({region.data(), region.size()});
  LogCapture log;
  Scheme scheme(reinterpret_cast<const ApkSignatureBlock*>(pair.data()), chunks);
  SchemeOutcome outcome;
  outcome.isParsed = scheme.Parse();
  if (last == Stage::kVerify) outcome.isVerified = scheme.Verify();
  static_cast<void>(scheme.GetPublicKeys(outcome.publicKeys));  // false when there are none
  outcome.lines = log.Take();
  return outcome;
}

}  // namespace Quill
