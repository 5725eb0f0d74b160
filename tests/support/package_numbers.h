// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "tests/support/wire.h"

namespace Quill {

// A number in a package.
struct PackageNumber {
  const char* name;
  size_t offset;  // from the start of the file
  size_t size;    // bytes
  uint64_t value;

  // Returns other numbers of its size: limits, neighbours, and some that make sums wrap.
  std::vector<uint64_t> Others() const;
};

// Returns the numbers of a package with a single pair: the block sizes, the pair's length, those of
// the end record that name the central directory and the comment, and inside the pair all 32 bits
// that can be a length or are a known ID. Some of these are parts of a key or a signature.
std::vector<PackageNumber> NumbersOf(const ByteVector& package);

// A package whose comment holds a v3 pair. With `longerBlockSize` as block size, the footer is the
// start of a pair that ends at the one in the comment.
struct PairBehindBlock {
  ByteVector package;
  PackageNumber blockSize;
  uint64_t longerBlockSize;
  PackageNumber pairLength;
};
// Makes one of a package with a long comment of zeros. Its contents no longer match its signature.
PairBehindBlock PutPairBehindBlock(ByteVector package);

}  // namespace Quill
