// SPDX-License-Identifier: Apache-2.0

#include "fuzz/package_mutator.h"

#include "fuzz/archive_mutator.h"
#include "fuzz/signers_mutator.h"
#include "signing_block/apk_package.h"
#include "tests/support/temp_file.h"

namespace Quill {
namespace {

constexpr size_t kEndRecordSize = sizeof(EocdRecord);
constexpr size_t kFooterSize = sizeof(ApkSigningBlockFooter);

ByteVector Pair(uint32_t id, const ByteVector& value) {
  return Wire().U64(4 + value.size()).U32(id).Bytes(value);
}

// Writes the size and offset of the central directory to the end record.
void FitEndRecord(ByteVector& eocd, size_t directorySize, size_t directoryOffset) {
  if (eocd.size() < kEndRecordSize) return;
  Put(eocd, 12, Wire().U32(directorySize).U32(directoryOffset));
}

}  // namespace

std::optional<PackageParts> TakeApart(const ByteVector& package) {
  const auto mapping = GuardedMapping(package);
  const ApkPackage finder(mapping);
  const EocdRecord* eocd = finder.FindEocdRecord();
  const CentralDirectory* directory = eocd == nullptr ? nullptr : finder.FindCentralDirectory(eocd);
  const auto* eocdStart = reinterpret_cast<const uint8_t*>(eocd);
  const auto* directoryStart = reinterpret_cast<const uint8_t*>(directory);
  if (directory == nullptr || directoryStart > eocdStart) return std::nullopt;

  PackageParts parts;
  const uint8_t* entriesEnd = directoryStart;
  if (const ApkSigningBlock* block = finder.FindApkSigningBlock(directory)) {
    entriesEnd = reinterpret_cast<const uint8_t*>(block);
    const uint8_t* pairs = entriesEnd + sizeof *block;
    if (directoryStart - pairs > static_cast<ptrdiff_t>(kFooterSize)) {
      parts.pairs.assign(pairs, directoryStart - kFooterSize);
    }
  }
  parts.regions = {{mapping->Data(), entriesEnd},
                   {directoryStart, eocdStart},
                   {eocdStart, mapping->Data() + mapping->Size()}};
  return parts;
}

ByteVector PutTogether(PackageParts parts) {
  const ByteVector block = parts.pairs.empty() ? ByteVector() : SigningBlock(parts.pairs);
  FitEndRecord(parts.regions[2], parts.regions[1].size(), parts.regions[0].size() + block.size());
  return Wire()
      .Bytes(parts.regions[0])
      .Bytes(block)
      .Bytes(parts.regions[1])
      .Bytes(parts.regions[2]);
}

void ChangeParts(PackageParts& parts, Random& random) {
  Regions& regions = parts.regions;
  ByteVector firstPair;
  switch (random.Below(16)) {
    case 0:
      MutateBytes(parts.pairs);
      break;
    case 1:
      parts.pairs = Wire().Bytes(parts.pairs).Bytes(Pair(0x42726577, {1, 2, 3}));
      break;
    case 2: {  // a comment as long as the end record says
      ByteVector comment(regions[2].begin() + kEndRecordSize, regions[2].end());
      MutateBytes(comment);
      regions[2].resize(kEndRecordSize);
      Put(regions[2], kEndRecordSize - 2, Wire().U16(static_cast<uint16_t>(comment.size())));
      regions[2].insert(regions[2].end(), comment.begin(), comment.end());
      break;
    }
    case 3:
    case 4:
    case 5:
      MutateBytes(random.OneOf(regions));
      break;
    default:
      firstPair = ChangeArchive(parts, random);
      break;
  }
  if (random.OneIn(4)) return;

  FitEndRecord(regions[2], regions[1].size(), regions[0].size());
  const size_t versions = 1 + random.Below(3);
  Wire pairs;
  pairs.Bytes(firstPair);
  if (versions & 1) {
    pairs.Bytes(
        Pair(ApkSignatureBlock::kSchemeV2Id, FreshValue(SchemeVersion::kV2, random, regions)));
  }
  if (versions & 2) {
    pairs.Bytes(
        Pair(ApkSignatureBlock::kSchemeV3Id, FreshValue(SchemeVersion::kV3, random, regions)));
  }
  parts.pairs = pairs;
}

}  // namespace Quill
