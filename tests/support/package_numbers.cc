// SPDX-License-Identifier: Apache-2.0

#include "tests/support/package_numbers.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace Quill {
namespace {

constexpr uint32_t kLineageId = 0x3ba06f8c;

// Steps through a package and keeps the numbers.
class Walk {
 public:
  explicit Walk(const ByteVector& package) : package_(package) {}

  uint64_t Number(const char* name, size_t size = 4) {
    uint64_t value = 0;
    for (size_t i = 0; i < size; ++i) value |= uint64_t{package_.at(offset_ + i)} << (8 * i);
    numbers_.push_back({name, offset_, size, value});
    offset_ += size;
    return value;
  }
  void Bytes(uint64_t size) { offset_ += size; }
  void MoveTo(uint64_t offset) { offset_ = offset; }

  // Items that fill a sequence; `item` stands behind the item's length and must reach its end.
  template <typename Item>
  void Sequence(const char* name, const char* itemName, Item item) {
    const uint64_t length = Number(name);
    Items(offset_ + length, itemName, item);
  }
  template <typename Item>
  void Items(uint64_t end, const char* itemName, Item item) {
    while (offset_ < end) item(Number(itemName));
  }

  uint64_t Offset() const { return offset_; }
  std::vector<PackageNumber> Numbers() const { return numbers_; }

 private:
  const ByteVector& package_;
  uint64_t offset_ = 0;
  std::vector<PackageNumber> numbers_;
};

void WalkAlgorithmItems(Walk& walk, const char* name) {
  walk.Sequence(name, "digest or signature item", [&](uint64_t) {
    walk.Number("algorithm");
    walk.Bytes(walk.Number("value"));
  });
}

void WalkAttribute(Walk& walk, uint64_t length) {
  const uint64_t end = walk.Offset() + length;
  if (walk.Number("attribute ID") != kLineageId) return walk.MoveTo(end);
  walk.Number("lineage version");
  walk.Items(end, "level", [&](uint64_t) {
    walk.Number("signed part of a level");
    walk.Bytes(walk.Number("certificate of a level"));
    walk.Number("signed algorithm of a level");
    walk.Number("flags of a level");
    walk.Number("algorithm of a level");
    walk.Bytes(walk.Number("signature of a level"));
  });
}

void WalkSigner(Walk& walk, bool isV3) {
  const auto walkSdkRange = [&] {
    if (!isV3) return;
    walk.Number("minSDK");
    walk.Number("maxSDK");
  };
  walk.Number("signed data");
  WalkAlgorithmItems(walk, "digests");
  walk.Sequence("certificates", "certificate", [&](uint64_t length) { walk.Bytes(length); });
  walkSdkRange();
  walk.Sequence("attributes", "attribute", [&](uint64_t length) { WalkAttribute(walk, length); });
  walkSdkRange();
  WalkAlgorithmItems(walk, "signatures");
  walk.Bytes(walk.Number("public key"));
}

}  // namespace

std::vector<uint64_t> PackageNumber::Others() const {
  const uint64_t mask = ~uint64_t{0} >> (64 - 8 * size);
  std::set<uint64_t> others = {0, 1, 1 << 30, mask / 2 + 1, mask};
  for (const uint64_t distance : {1UL, 4UL, 1000008UL}) {
    others.insert({value + distance, value - distance});
  }
  others.insert(mask - offset - size + 1);  // the sum with its own end is 0
  if (size == 8) others.insert({uint64_t{1} << 40, value | uint64_t{1} << 32});
  std::set<uint64_t> masked;
  for (const uint64_t other : others) masked.insert(other & mask);
  masked.erase(value);
  return {masked.begin(), masked.end()};
}

std::vector<PackageNumber> NumbersOf(const ByteVector& package) {
  constexpr size_t kFooterSize = 24;
  const ByteVector endRecord = Wire().Text("PK\5\6");
  const auto found =
      std::find_end(package.begin(), package.end(), endRecord.begin(), endRecord.end());
  Walk walk(package);
  walk.MoveTo(static_cast<uint64_t>(found - package.begin()) + 12);
  walk.Number("size of the central directory");
  const uint64_t directory = walk.Number("offset of the central directory");
  walk.Number("length of the comment", 2);
  walk.MoveTo(directory - kFooterSize);
  const uint64_t blockSize = walk.Number("block size in the footer", 8);
  walk.MoveTo(directory - blockSize - 8);
  walk.Number("block size", 8);
  walk.Number("pair", 8);
  const bool isV3 = walk.Number("ID of the pair") == 0xf05368c0;
  walk.Sequence("signers", "signer", [&](uint64_t) { WalkSigner(walk, isV3); });
  return walk.Numbers();
}

PairBehindBlock PutPairBehindBlock(ByteVector package) {
  constexpr uint64_t kFooterSize = 24;
  const ByteVector pair = Wire().U64(12).U32(0xf05368c0).Fill(8);
  const auto numbers = NumbersOf(package);
  const PackageNumber blockSize = *std::find_if(
      numbers.begin(), numbers.end(),
      [](const PackageNumber& number) { return std::strcmp(number.name, "block size") == 0; });
  const uint64_t pairs = blockSize.offset + blockSize.size;
  const uint64_t footer = pairs + blockSize.value - kFooterSize;
  const uint64_t offset = footer + 8 + blockSize.value;
  Put(package, offset, pair);
  return {package,
          blockSize,
          offset + pair.size() - pairs + kFooterSize,
          {"pair behind the block", offset, 8, 12}};
}

}  // namespace Quill
