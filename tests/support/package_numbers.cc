// SPDX-License-Identifier: Apache-2.0

#include "tests/support/package_numbers.h"

#include <algorithm>
#include <set>

namespace Quill {

std::vector<uint64_t> PackageNumber::Others() const {
  const uint64_t mask = ~uint64_t{0} >> (64 - 8 * size);
  const uint64_t minusEnd = 0 - (offset + size);  // the sum with its own end is 0
  std::set<uint64_t> others;
  for (const uint64_t other :
       {uint64_t{0}, uint64_t{1}, uint64_t{1} << 30, mask / 2 + 1, mask, value + 1, value - 1,
        value + 4, value - 4, value + 1000008, value - 1000008, minusEnd, uint64_t{1} << 40,
        value | uint64_t{1} << 32}) {
    others.insert(other & mask);
  }
  others.erase(value);
  return {others.begin(), others.end()};
}

std::vector<PackageNumber> NumbersOf(const ByteVector& package) {
  const std::set<uint64_t> kIds = {0x7109871a, 0xf05368c0, 0x3ba06f8c, 0xbeeff00d, 0x7fffffff};
  std::vector<PackageNumber> numbers;
  const auto add = [&](const char* name, size_t offset, size_t size) {
    uint64_t value = 0;
    for (size_t i = size; i-- > 0;) value = value << 8 | package.at(offset + i);
    numbers.push_back({name, offset, size, value});
    return value;
  };
  const ByteVector signature = Wire().Text("PK\5\6");
  const auto record =
      std::find_end(package.begin(), package.end(), signature.begin(), signature.end());
  const auto end = static_cast<size_t>(record - package.begin());
  add("length of the comment", end + 20, 2);
  add("size of the central directory", end + 12, 4);
  const size_t footer = add("offset of the central directory", end + 16, 4) - 24;
  const uint64_t blockSize = add("block size in the footer", footer, 8);
  const size_t pair = footer + 24 - blockSize;
  add("block size", pair - 8, 8);
  add("pair", pair, 8);
  for (size_t offset = pair + 8; offset + 4 <= footer; ++offset) {
    const uint64_t value = add("in the pair", offset, 4);
    if (value > blockSize && kIds.count(value) == 0) numbers.pop_back();
  }
  return numbers;
}

PairBehindBlock PutPairBehindBlock(ByteVector package) {
  const auto numbers = NumbersOf(package);
  const PackageNumber blockSize = numbers[4];
  const size_t offset = blockSize.offset + 2 * blockSize.value - 8;
  const ByteVector pair = Wire().U64(12).U32(0xf05368c0).Fill(8);
  Put(package, offset, pair);
  return {package, blockSize, 2 * blockSize.value + 28, {"pair behind the block", offset, 8, 12}};
}

}  // namespace Quill
