// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "tests/support/wire.h"

namespace Quill {

// A number as it stands in a package.
struct PackageNumber {
  const char* name;
  size_t offset;  // from the start of the file
  size_t size;    // bytes
  uint64_t value;

  // Other numbers of its size: limits, neighbours, and some that make sums wrap.
  std::vector<uint64_t> Others() const;
};

// Every length, size, ID and other number in the signing block of a package with a single pair, of
// scheme v2 or v3, and those of its end record that name the central directory and the comment.
std::vector<PackageNumber> NumbersOf(const ByteVector& package);

// A package with a v3 pair in its comment, which a reader finds who takes another block size for
// right: with that, the footer is the start of a pair that ends where the one in the comment
// starts.
struct PairBehindBlock {
  ByteVector package;
  PackageNumber blockSize;
  uint64_t longerBlockSize;
  PackageNumber pairLength;
};
// Makes one of a package with a long comment of zeros; its contents are no longer those signed.
PairBehindBlock PutPairBehindBlock(ByteVector package);

}  // namespace Quill
