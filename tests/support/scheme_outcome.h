#pragma once

#include <gtest/gtest.h>

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
  std::vector<LogLine> lines;

  std::vector<size_t> KeyLengths() const {
    std::vector<size_t> lengths;
    for (const ByteVector& key : publicKeys) lengths.push_back(key.size());
    return lengths;
  }
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
  scheme.GetPublicKeys(outcome.publicKeys);
  outcome.lines = log.Take();
  return outcome;
}

// Cuts the value of one signer everywhere, and expects the lines of a signer that runs past the
// value; then once more with the lengths of the sequence and of the signer made to fit.
template <typename Scheme>
void ExpectNoTruncationParses(const ByteVector& value, const std::vector<LogLine>& lines) {
  ASSERT_TRUE(RunScheme<Scheme>(Stage::kParse, value).isParsed);
  for (size_t length = 0; length < value.size(); ++length) {
    SCOPED_TRACE(length);
    ByteVector cut(value.data(), value.data() + length);
    const SchemeOutcome outcome = RunScheme<Scheme>(Stage::kParse, cut);
    EXPECT_FALSE(outcome.isParsed);
    EXPECT_EQ(lines, outcome.lines);
    if (length < 8) continue;
    Put(cut, 0, Wire().U32(length - 4).U32(length - 8));
    EXPECT_FALSE(RunScheme<Scheme>(Stage::kParse, cut).isParsed);
  }
}

}  // namespace Quill
