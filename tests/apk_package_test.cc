// SPDX-License-Identifier: Apache-2.0

#include "signing_block/apk_package.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>

#include "schemes/apk_signature_block_base.h"
#include "tests/support/opened_package.h"
#include "tests/support/package_numbers.h"
#include "tests/support/table.h"

namespace Quill {
namespace {

static_assert(!std::is_copy_constructible_v<ApkPackage> && !std::is_copy_assignable_v<ApkPackage>);

constexpr uint32_t kV2 = 0x7109871a, kV3 = 0xf05368c0, kUnknown = 0x12345678;

// Changes a number in place.
void Change(const MapFile& mapping, const PackageNumber& number, uint64_t value) {
  std::memcpy(const_cast<uint8_t*>(mapping.Data()) + number.offset, &value, number.size);
}

TEST(ApkPackage, EachStepFindsItsRecordOrNothing) {
  for (const Row& row : ReadTable("package_records.txt")) {
    const auto mapping = GuardedMapping(Bytes(row.fields[2]));
    const uint8_t *begin = mapping->Data(), *end = begin + mapping->Size();
    const ApkPackage package(mapping);
    const std::string& step = row.fields[0];
    const void* found = nullptr;
    std::vector<const ApkSignatureBlock*> pairs;
    LogCapture log;
    if (step == "directory") {
      found = package.FindCentralDirectory(reinterpret_cast<const EocdRecord*>(begin));
    } else if (step == "block") {
      found = package.FindApkSigningBlock(reinterpret_cast<const CentralDirectory*>(end));
    } else if (step == "pairs") {
      const auto* block = reinterpret_cast<const ApkSigningBlock*>(begin);
      if (package.ParseApkSignatureBlocks(block, pairs)) found = pairs.back();
    } else {
      ASSERT_EQ("end record", step);
      found = package.FindEocdRecord();
    }
    const auto offset = static_cast<const uint8_t*>(found) - begin;
    EXPECT_EQ(row.fields[1], found == nullptr ? "none" : std::to_string(offset)) << row.text;
    EXPECT_EQ(found != nullptr && step == "pairs" ? 2u : 0u, pairs.size());
    EXPECT_EQ(row.log, log.Take()) << row.text;
  }
}

TEST(ApkPackage, V3IsChosenBeforeV2AndOfTwoTheFirst) {
  const auto package = [] { return PackageBuilder().Manifest(); };
  ByteVector trailing = package().V2().Build(), gap = trailing;
  trailing.push_back(0);
  gap.insert(gap.end() - 22, 0);  // behind the central directory
  const std::pair<ByteVector, std::string> kCases[] = {
      {package().V2().V3().Build(), "V3"},
      {package().V3().Pair(kV3, {}).Build(), "V3"},
      {package().V2().Comment(ByteVector(65535, 7)).Build(), "V2"},
      // Behind the entry's header of 31 bytes: one piece of 1 MiB, and a byte more.
      {PackageBuilder().Entry("a", ByteVector((1 << 20) - 31)).V2().Build(), "V2"},
      {PackageBuilder().Entry("a", ByteVector((1 << 20) - 30)).V2().Build(), "V2"},
      {package().Pair(kUnknown, {1}).Build(), "Unknown version"},
      {package().V2().Comment(Bytes("PK 0x0605:2 0:18")).Build(), "Unknown version"},
      {trailing, "Unknown version"},
      {gap, "Unknown version"},
  };
  for (const auto& [file, version] : kCases) {
    LogCapture log;
    ApkPackage parsed(GuardedMapping(file));
    EXPECT_EQ(version[0] == 'V', parsed.ParseApkPackage() && parsed.VerifyApkPackage());
    EXPECT_EQ(version, parsed.GetVersionName()) << &version - &kCases[0].second;
  }
}

// The second package's pair no longer fits when it is verified: the file changed.
TEST(ApkPackage, APairThatCannotBeVerifiedYieldsNoKey) {
  const std::pair<uint64_t, std::string> kCases[] = {
      {4,
       "E Can't parse digests~\nE Can't parse signed data~\nE Can't parse signer data~\n"
       "E Can't parse APK signature block~\n"},
      {1 << 30, "E APK signing block is not initialized~\nE Can't create APK signature block~\n"},
  };
  const ByteVector bytes = PackageBuilder().Manifest().Pair(kV2, {}).Build();
  for (const auto& [pairLength, lines] : kCases) {
    LogCapture log;
    const auto mapping = GuardedMapping(bytes);
    ApkPackage package(mapping);
    ASSERT_TRUE(package.ParseApkPackage());
    Change(*mapping, NumbersOf(bytes)[5], pairLength);
    EXPECT_FALSE(package.VerifyApkPackage());
    ByteVector key;
    EXPECT_FALSE(package.GetMainPublicKey(key));
    EXPECT_EQ(lines + "E Can't find any public key~\n", log.Take());
  }
}

// A package in memory of which a number takes another value at the moment `first`, and its own
// again at the moment `back`. A moment lies behind each step, and where the scheme logs a line.
struct ChangingPackage : ApkPackage {
  static constexpr size_t kMoments = 8;

  ChangingPackage(const std::shared_ptr<MapFile>& mapping, const PackageNumber& number,
                  uint64_t value, size_t first, size_t back = kMoments)
      : ApkPackage(mapping) {
    pass = [=, moment = size_t{0}]() mutable {
      if (moment == first) Change(*mapping, number, value);
      if (moment == back) Change(*mapping, number, number.value);
      return ++moment;
    };
    __android_log_set_logger([](const auto*, auto...) { pass(); });
  }
  ~ChangingPackage() override { __android_log_set_logger(__android_log_stderr_logger); }

  template <typename Result>
  static Result After(Result result) {
    pass();
    return result;
  }
  const EocdRecord* FindEocdRecord() const override { return After(ApkPackage::FindEocdRecord()); }
  const CentralDirectory* FindCentralDirectory(const EocdRecord* eocd) const override {
    return After(ApkPackage::FindCentralDirectory(eocd));
  }
  const ApkSigningBlock* FindApkSigningBlock(const CentralDirectory* directory) const override {
    return After(ApkPackage::FindApkSigningBlock(directory));
  }
  bool CheckEndOfCentralAndCentralDirectories(const EocdRecord* eocd,
                                              const CentralDirectory* directory) const override {
    return After(ApkPackage::CheckEndOfCentralAndCentralDirectories(eocd, directory));
  }
  bool ParseApkSignatureBlocks(const ApkSigningBlock* block,
                               std::vector<const ApkSignatureBlock*>& out) const override {
    return After(ApkPackage::ParseApkSignatureBlocks(block, out));
  }
  void PrepareRawDataChunks(EocdRecord* eocdCopy, std::vector<RawData>& chunks) const override {
    ApkPackage::PrepareRawDataChunks(eocdCopy, chunks);
    pass();
  }

  // Returns the key of a package that verifies, and nothing for a refused one.
  ByteVector Key() {
    ByteVector key;
    if (After(ParseApkPackage()) && VerifyApkPackage()) {
      EXPECT_TRUE(GetMainPublicKey(key));
    }
    return key;
  }

  inline static std::function<size_t()> pass;
};

// Every number takes another value between any two steps, for the next step alone or for good.
TEST(ApkPackage, AFileThatChangesBetweenStepsIsRefusedOrVerifiedAsItWas) {
  SignerOptions rotated;
  rotated.attributes = {LineageAttribute(Lineage({&TestKey("p256-1"), rotated.key}))};
  for (auto builder : {PackageBuilder().V2(), PackageBuilder().V3({rotated})}) {
    const ByteVector file = builder.Manifest().Build();
    const ByteVector goodKey = OpenedPackage(file).key;
    const auto mapping = GuardedMapping(file);
    for (const PackageNumber& number : NumbersOf(file)) {
      for (const uint64_t value : number.Others()) {
        for (size_t i = 0; i < 2 * ChangingPackage::kMoments; ++i) {
          const size_t first = i / 2, back = i % 2 == 0 ? first + 1 : ChangingPackage::kMoments;
          const ByteVector key = ChangingPackage(mapping, number, value, first, back).Key();
          EXPECT_TRUE(key.empty() || key == goodKey)
              << number.name << " at " << number.offset << " is " << value << " from " << first;
          Change(*mapping, number, number.value);
        }
      }
    }
    const size_t never = ChangingPackage::kMoments + 1;
    EXPECT_FALSE(ChangingPackage(mapping, NumbersOf(file)[0], 0, never).Key().empty());
    EXPECT_EQ(never, ChangingPackage::pass());
  }
}

// The block's size is read twice, to find the block and to list its pairs.
TEST(ApkPackage, NoPairIsTakenFromBehindABlockThatGrows) {
  constexpr size_t kBehindCheckEnd = 3;
  const auto hostile =
      PutPairBehindBlock(PackageBuilder().Manifest().V2().Comment(ByteVector(65535)).Build());
  for (const uint64_t size : {hostile.blockSize.value + 1, hostile.longerBlockSize}) {
    const auto mapping = GuardedMapping(hostile.package);
    ChangingPackage package(mapping, hostile.blockSize, size, kBehindCheckEnd);
    EXPECT_FALSE(package.ParseApkPackage()) << size;
  }
}

}  // namespace
}  // namespace Quill
