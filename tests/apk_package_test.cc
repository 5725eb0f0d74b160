#include "signing_block/apk_package.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>

#include "schemes/apk_signature_block_base.h"
#include "tests/support/log_capture.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"

namespace Quill {
namespace {

constexpr uint32_t kV2 = 0x7109871a, kV3 = 0xf05368c0, kUnknown = 0x12345678;

ByteVector Eocd(uint32_t directorySize, uint32_t directoryOffset, uint16_t commentLength = 0) {
  return Wire().Text("PK\5\6").Fill(8).U32(directorySize).U32(directoryOffset).U16(commentLength);
}

using Offset = std::optional<ptrdiff_t>;

// Where `found` lies in the mapping; nothing for null.
Offset OffsetIn(const MapFile& mapping, const void* found) {
  if (found == nullptr) return std::nullopt;
  return static_cast<const uint8_t*>(found) - mapping.Data();
}

TEST(ApkPackage, FindsTheLastEndRecordBehindTheFirst22Bytes) {
  const ByteVector eocd = Eocd(0, 0);
  const struct {
    const char* name;
    ByteVector file;
    Offset offset;
  } kCases[] = {
      {"shorter than two records", eocd, {}},
      {"too early", Wire().Fill(21).Bytes(eocd).Fill(1), {}},
      {"earliest", Wire().Fill(22).Bytes(eocd), 22},
      {"far from the end", Wire().Fill(22).Bytes(eocd).Fill(70000), 22},
      {"two", Wire().Fill(22).Bytes(eocd).Bytes(eocd), 44},
      {"second cut", Wire().Fill(22).Bytes(eocd).Text("PPK\5\6").Fill(17), 22},
      {"none", ByteVector(100, 'P'), {}},
  };
  for (const auto& c : kCases) {
    const auto mapping = GuardedMapping(c.file);
    EXPECT_EQ(c.offset, OffsetIn(*mapping, ApkPackage(mapping).FindEocdRecord())) << c.name;
  }
}

TEST(ApkPackage, CentralDirectoryLiesInTheFile) {
  const ByteVector file = Wire().Fill(50).Text("PK\1\2").Fill(42).Text("PK\1\2");  // 100 bytes
  const struct {
    uint32_t size;
    uint32_t offset;
    Offset found;
  } kCases[] = {{50, 50, 50}, {0, 50, 50},  {51, 50, {}}, {0xffffffff, 50, {}},
                {4, 49, {}},  {4, 96, 96},  {5, 96, {}},  {3, 97, {}},
                {0, 97, {}},  {0, 100, {}}, {0, 101, {}}, {0, 0xffffffff, {}}};
  const auto mapping = GuardedMapping(file);
  for (const auto& c : kCases) {
    const ByteVector eocd = Eocd(c.size, c.offset);
    const auto* record = reinterpret_cast<const EocdRecord*>(eocd.data());
    EXPECT_EQ(c.found, OffsetIn(*mapping, ApkPackage(mapping).FindCentralDirectory(record)))
        << c.size << " bytes at " << c.offset;
  }
}

TEST(ApkPackage, SigningBlockEndsAtTheCentralDirectoryAndStartsInTheFile) {
  const ByteVector empty = SigningBlock({});
  ByteVector otherMagic = empty, sizesDiffer = empty;
  otherMagic.back() ^= 1;
  sizesDiffer[0] ^= 1;
  const ByteVector footer(empty.begin() + 8, empty.end());
  const struct {
    const char* name;
    ByteVector before;  // what lies before the central directory
    Offset offset;
  } kCases[] = {
      {"at the start of the file", empty, 0},
      {"behind an entry", Wire().Fill(10).Bytes(SigningBlock({1, 2})), 10},
      {"nothing", {}, {}},
      {"fewer bytes than a footer", ByteVector(footer.begin() + 1, footer.end()), {}},
      {"footer alone, sizes in one place", Wire().U64(16).Text("APK Sig Block 42"), 0},
      {"starts before the file", footer, {}},
      {"one byte before the file", ByteVector(empty.begin() + 1, empty.end()), {}},
      {"size that wraps", Wire().Fill(30).U64(0xfffffffffffffff8).Text("APK Sig Block 42"), {}},
      {"another magic", otherMagic, {}},
      {"sizes differ", sizesDiffer, {}},
      {"bytes behind it", Wire().Bytes(empty).U8(0), {}},
  };
  for (const auto& c : kCases) {
    const auto mapping = GuardedMapping(Wire().Bytes(c.before).Text("PK\1\2"));
    const auto* directory =
        reinterpret_cast<const CentralDirectory*>(mapping->Data() + c.before.size());
    EXPECT_EQ(c.offset, OffsetIn(*mapping, ApkPackage(mapping).FindApkSigningBlock(directory)))
        << c.name;
  }
}

TEST(ApkPackage, PairsFillTheSigningBlock) {
  const auto pair = [](uint64_t length, const ByteVector& value) -> ByteVector {
    return Wire().U64(length).U32(kUnknown).Bytes(value);
  };
  const std::string outOfRange =
      "Out of range for sequence of uint64-length-prefixed ID-value pairsin APK Signing Block: ";
  const LogLine tooShort = Info(
      "Out of range for sequence of uint64-length-prefixed ID-value pairs in APK Signing Block\n");
  const struct {
    const char* name;
    ByteVector block;
    std::vector<LogLine> lines;  // empty: parsed
    size_t count;
  } kCases[] = {
      {"none", SigningBlock({}), {}, 0},
      {"two", SigningBlock(Wire().Bytes(pair(4, {})).Bytes(pair(6, {1, 2}))), {}, 2},
      {"seven bytes", SigningBlock(Wire().Bytes(pair(4, {})).Fill(7)),
       Lines(Error(outOfRange + "remaining_space: 7\n")), 0},
      {"length 3", SigningBlock(pair(3, {})),
       Lines(Error("Bad lenght of APK Signing Block: 0x3\n")), 0},
      {"length 0", SigningBlock(ByteVector(8)),
       Lines(Error("Bad lenght of APK Signing Block: 0x0\n")), 0},
      {"past the footer", SigningBlock(pair(9, {1, 2, 3, 4})),
       Lines(Error(outOfRange + "remaining_space: 16 block->len: 9\n")), 0},
      {"largest length", SigningBlock(pair(0xffffffffffffffff, {})),
       Lines(Error(outOfRange + "remaining_space: 12 block->len: -1\n")), 0},
      {"shorter than its footer", Wire().U64(16).Text("APK Sig Block 42"), Lines(tooShort), 0},
      {"past the file", Wire().U64(100).Fill(99), Lines(tooShort), 0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto mapping = GuardedMapping(c.block);
    LogCapture log;
    std::vector<const ApkSignatureBlock*> pairs;
    const auto* block = reinterpret_cast<const ApkSigningBlock*>(mapping->Data());
    EXPECT_EQ(c.lines.empty(), ApkPackage(mapping).ParseApkSignatureBlocks(block, pairs));
    EXPECT_EQ(c.count, pairs.size());
    EXPECT_EQ(c.lines, log.Take());
  }
}

TEST(ApkPackage, V3IsChosenBeforeV2AndOfTwoTheFirst) {
  const auto package = [] { return PackageBuilder().Manifest(); };
  const ByteVector eocd = Eocd(0, 0);
  ByteVector trailing = package().V2().Build(), gap = trailing;
  trailing.push_back(0);
  gap.insert(gap.end() - 22, 0);
  const struct {
    const char* name;
    ByteVector file;
    uint32_t version;  // 0: not parsed
  } kCases[] = {
      {"v2", package().V2().Build(), 2},
      {"v3", package().V3().Build(), 3},
      {"v2, v3", package().V2().V3().Build(), 3},
      {"two of v3", package().V3().Pair(kV3, {}).Build(), 3},
      {"comment", package().V2().Comment(ByteVector(65535, 7)).Build(), 2},
      {"unknown pair alone", package().Pair(kUnknown, {1}).Build(), 0},
      {"no pair", package().RawBlock(SigningBlock({})).Build(), 0},
      {"no signing block", package().Build(), 0},
      {"record in the comment", package().V2().Comment(eocd).Build(), 0},
      {"byte behind the comment", trailing, 0},
      {"byte behind the central directory", gap, 0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    LogCapture log;
    ApkPackage parsed(GuardedMapping(c.file));
    EXPECT_EQ(c.version != 0, parsed.ParseApkPackage());
    EXPECT_EQ(c.version, parsed.GetVersionScheme());
    constexpr const char* kNames[] = {"Unknown version", "V1", "V2", "V3"};
    EXPECT_EQ(kNames[c.version], parsed.GetVersionName());
    EXPECT_EQ(Lines(), log.Take());
    if (c.version != 0) {
      EXPECT_TRUE(parsed.VerifyApkPackage());
    }
  }
}

TEST(ApkPackage, RegionsAreCutIntoPiecesOfOneMebibyte) {
  constexpr uint32_t kMebibyte = 1 << 20;
  constexpr uint32_t kHeader = 31;  // of an entry with a name of one character
  const struct {
    size_t entrySize;
    std::vector<uint64_t>
        lengths;  // of the pieces, the central directory of 47 bytes and the record
  } kCases[] = {
      {kMebibyte - kHeader, {kMebibyte, 47, 25}},
      {kMebibyte - kHeader + 1, {kMebibyte, 1, 47, 25}},
      {2 * kMebibyte - kHeader, {kMebibyte, kMebibyte, 47, 25}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.entrySize);
    const auto mapping =
        PackageBuilder().Entry("a", ByteVector(c.entrySize)).V2().Comment({1, 2, 3}).Map();
    LogCapture log;
    ApkPackage package(mapping);
    ASSERT_TRUE(package.ParseApkPackage());
    ByteVector eocd(mapping->Data() + mapping->Size() - 25, mapping->Data() + mapping->Size());
    std::vector<RawData> chunks;
    package.PrepareRawDataChunks(reinterpret_cast<EocdRecord*>(eocd.data()), chunks);
    std::vector<uint64_t> lengths;
    std::transform(chunks.begin(), chunks.end(), std::back_inserter(lengths),
                   [](const RawData& chunk) { return chunk.length; });
    EXPECT_EQ(c.lengths, lengths);
    EXPECT_EQ(mapping->Data(), chunks.front().data);
    EXPECT_EQ(eocd.data(), chunks.back().data);
    const ByteVector patched(eocd.begin() + 16, eocd.begin() + 20);
    EXPECT_EQ(ByteVector(Wire().U32(kHeader + c.entrySize)), patched);
    EXPECT_TRUE(package.VerifyApkPackage());
  }
}

TEST(ApkPackage, APairThatCannotBeVerifiedYieldsNoKey) {
  LogCapture log;
  ApkPackage package(PackageBuilder().Manifest().Pair(kV2, {}).Map());
  ASSERT_TRUE(package.ParseApkPackage());
  EXPECT_FALSE(package.VerifyApkPackage());
  ByteVector key;
  EXPECT_FALSE(package.GetMainPublicKey(key));
  EXPECT_EQ(nullptr, package.CreateApkSignatureBlock(nullptr, {}));
  const ApkSignatureBlock unknown = {4, kUnknown};
  EXPECT_EQ(nullptr, package.CreateApkSignatureBlock(&unknown, {}));
  EXPECT_EQ(Lines(Error("Can't parse signed data"), Error("Can't parse signer data"),
                  Error("Can't parse APK signature block"), Error("Can't find any public key"),
                  Error("APK signing block is not initialized"),
                  Error("Unknown APK signing block: 0x12345678")),
            log.Take());
}

// What was found to fit is not trusted again: the file may change between the steps.
TEST(ApkPackage, RefusesAPairThatNoLongerFits) {
  const ByteVector bytes = PackageBuilder().Manifest().V2().Build();
  const Fd file = MemoryFile(bytes);
  ApkPackage package(MapFileRO(file.GetFd()));
  ASSERT_TRUE(package.ParseApkPackage());
  const ByteVector id = Wire().U32(kV2);
  const auto pair = std::search(bytes.begin(), bytes.end(), id.begin(), id.end()) - 8;
  const ByteVector length = Wire().U64(1 << 30);
  ASSERT_EQ(8, pwrite(file.GetFd(), length.data(), length.size(), pair - bytes.begin()));
  LogCapture log;
  EXPECT_FALSE(package.VerifyApkPackage());
  EXPECT_EQ(Lines(Error("APK signing block is not initialized"),
                  Error("Can't create APK signature block")),
            log.Take());
}

}  // namespace
}  // namespace Quill
