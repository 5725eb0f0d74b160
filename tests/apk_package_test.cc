// SPDX-License-Identifier: Apache-2.0

#include "signing_block/apk_package.h"

#include <android/log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <type_traits>

#include "schemes/apk_signature_block_base.h"
#include "tests/support/opened_package.h"
#include "tests/support/package_numbers.h"

namespace Quill {
namespace {

static_assert(!std::is_copy_constructible_v<ApkPackage> && !std::is_copy_assignable_v<ApkPackage>);

constexpr uint32_t kV2 = 0x7109871a, kV3 = 0xf05368c0, kUnknown = 0x12345678;

ByteVector Eocd(uint32_t directorySize, uint32_t directoryOffset) {
  return Wire().Text("PK\5\6").Fill(8).U32(directorySize).U32(directoryOffset).U16(0);
}

// The offset at which a step finds what it looks for; nothing for null.
using Offset = std::optional<ptrdiff_t>;

template <typename Step>
Offset Find(const ByteVector& file, Step step) {
  const auto mapping = GuardedMapping(file);
  const auto* found = reinterpret_cast<const uint8_t*>(step(ApkPackage(mapping), mapping->Data()));
  return found == nullptr ? Offset() : found - mapping->Data();
}

TEST(ApkPackage, FindsTheLastEndRecordBehindTheFirst22Bytes) {
  const ByteVector eocd = Eocd(0, 0);
  const std::pair<ByteVector, Offset> kCases[] = {
      {Wire().Fill(21).Bytes(eocd).Fill(1), {}},
      {Wire().Fill(22).Bytes(eocd), 22},
      {Wire().Fill(22).Bytes(eocd).Text("PPK\5\6").Fill(70000), 45},
      {Wire().Fill(22).Bytes(eocd).Text("PPK\5\6").Fill(17), 22},
  };
  for (const auto& [file, offset] : kCases) {
    EXPECT_EQ(offset, Find(file, [](const ApkPackage& package, const uint8_t*) {
                return package.FindEocdRecord();
              }));
  }
}

TEST(ApkPackage, CentralDirectoryLiesInTheFile) {
  const ByteVector file = Wire().Fill(50).Text("PK\1\2").Fill(42).Text("PK\1\2");  // 100 bytes
  const struct {
    uint32_t size, offset;
    Offset found;
  } kCases[] = {{50, 50, 50}, {51, 50, {}}, {4, 49, {}},  {4, 96, 96},
                {3, 97, {}},  {0, 101, {}}, {0, ~0u, {}}, {~0u, 50, {}}};
  for (const auto& c : kCases) {
    const ByteVector eocd = Eocd(c.size, c.offset);
    EXPECT_EQ(c.found, Find(file,
                            [&](const ApkPackage& package, const uint8_t*) {
                              return package.FindCentralDirectory(
                                  reinterpret_cast<const EocdRecord*>(eocd.data()));
                            }))
        << c.size << " bytes at " << c.offset;
  }
}

TEST(ApkPackage, SigningBlockEndsAtTheCentralDirectoryAndStartsInTheFile) {
  const std::string magic = "APK Sig Block 42";
  const std::pair<ByteVector, Offset> kCases[] = {
      // what lies before the central directory
      {Wire().Fill(10).Bytes(SigningBlock({1, 2})), 10},
      {Wire().Fill(7).Text(magic), {}},
      {Wire().U64(16).Text(magic), 0},  // a footer alone, its size in one place
      {Wire().Fill(7).U64(24).Text(magic), {}},
      {Wire().Fill(30).U64(0xfffffffffffffff8).Text(magic), {}},
      {Wire().U64(24).U64(24).Text("APK Sig Block 43"), {}},
      {Wire().U64(25).U64(24).Text(magic), {}},
  };
  for (const auto& [before, offset] : kCases) {
    EXPECT_EQ(offset, Find(before,
                           [size = before.size()](const ApkPackage& package, const uint8_t* data) {
                             return package.FindApkSigningBlock(
                                 reinterpret_cast<const CentralDirectory*>(data + size));
                           }))
        << before.size();
  }
}

TEST(ApkPackage, PairsFillTheSigningBlock) {
  const ByteVector pair = Wire().U64(4).U32(kUnknown);
  const std::string outOfRange =
      "Out of range for sequence of uint64-length-prefixed ID-value pairsin APK Signing Block: ";
  const std::string tooShort =
      "I Out of range for sequence of uint64-length-prefixed ID-value pairs in APK Signing Block\n";
  const std::pair<ByteVector, std::string> kCases[] = {
      // no line: parsed, two pairs
      {SigningBlock(Wire().Bytes(pair).Bytes(pair)), {}},
      {SigningBlock(Wire().Bytes(pair).Fill(7)), "E " + outOfRange + "remaining_space: 7\n"},
      {SigningBlock(Wire().U64(3).Fill(4)), "E Bad lenght of APK Signing Block: 0x3\n"},
      {SigningBlock(Wire().U64(9).Fill(8)),
       "E " + outOfRange + "remaining_space: 16 block->len: 9\n"},
      {SigningBlock(Wire().U64(0xffffffffffffffff).Fill(4)),
       "E " + outOfRange + "remaining_space: 12 block->len: -1\n"},
      {Wire().U64(16).Text("APK Sig Block 42"), tooShort},
      {Wire().U64(100).Fill(99), tooShort},
  };
  for (const auto& [bytes, lines] : kCases) {
    const auto mapping = GuardedMapping(bytes);
    LogCapture log;
    std::vector<const ApkSignatureBlock*> pairs;
    const auto* block = reinterpret_cast<const ApkSigningBlock*>(mapping->Data());
    EXPECT_EQ(lines.empty(), ApkPackage(mapping).ParseApkSignatureBlocks(block, pairs));
    EXPECT_EQ(lines.empty() ? 2u : 0u, pairs.size());
    EXPECT_EQ(lines, log.Take());
  }
}

TEST(ApkPackage, V3IsChosenBeforeV2AndOfTwoTheFirst) {
  const auto package = [] { return PackageBuilder().Manifest(); };
  ByteVector trailing = package().V2().Build(), gap = trailing;
  trailing.push_back(0);
  gap.insert(gap.end() - 22, 0);  // behind the central directory
  const std::pair<ByteVector, const char*> kCases[] = {
      {package().V2().V3().Build(), "V3"},
      {package().V3().Pair(kV3, {}).Build(), "V3"},
      {package().V2().Comment(ByteVector(65535, 7)).Build(), "V2"},
      // Behind the entry's header of 31 bytes: one piece of 1 MiB, and a byte more.
      {PackageBuilder().Entry("a", ByteVector((1 << 20) - 31)).V2().Build(), "V2"},
      {PackageBuilder().Entry("a", ByteVector((1 << 20) - 30)).V2().Build(), "V2"},
      {package().Pair(kUnknown, {1}).Build(), "Unknown version"},
      {package().V2().Comment(Eocd(0, 0)).Build(), "Unknown version"},
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

TEST(ApkPackage, APairThatCannotBeVerifiedYieldsNoKey) {
  LogCapture log;
  ApkPackage package(GuardedMapping(PackageBuilder().Manifest().Pair(kV2, {}).Build()));
  ASSERT_TRUE(package.ParseApkPackage());
  EXPECT_FALSE(package.VerifyApkPackage());
  ByteVector key;
  EXPECT_FALSE(package.GetMainPublicKey(key));
  EXPECT_EQ(
      "E Can't parse digests~\nE Can't parse signed data~\nE Can't parse signer data~\n"
      "E Can't parse APK signature block~\nE Can't find any public key~\n",
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
  EXPECT_EQ(
      "E APK signing block is not initialized~\n"
      "E Can't create APK signature block~\n",
      log.Take());
}

// A package whose file changes between two steps: a number takes another value and, if that is not
// the last change, its own again. Moments are counted; one lies behind each step, one behind the
// parse of the chosen pair, where the scheme logs a line.
class ChangingPackage : public ApkPackage {
 public:
  struct Change {
    size_t first, back;  // moments
    const PackageNumber* number;
    uint64_t value;
  };

  ChangingPackage(const std::shared_ptr<MapFile>& mapping, const Change& change)
      : ApkPackage(mapping), file_(const_cast<uint8_t*>(mapping->Data())), change_(change) {
    current_ = this;
    __android_log_set_logger([](const auto*, auto...) { current_->Pass(); });
  }
  ~ChangingPackage() override {
    __android_log_set_logger(__android_log_stderr_logger);
    Put(change_.number->value);
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
  bool ParseApkPackage() override { return After(ApkPackage::ParseApkPackage()); }
  void PrepareRawDataChunks(EocdRecord* eocdCopy, std::vector<RawData>& chunks) const override {
    ApkPackage::PrepareRawDataChunks(eocdCopy, chunks);
    Pass();
  }

  size_t MomentCount() const { return moment_; }

 private:
  template <typename Result>
  Result After(Result result) const {
    Pass();
    return result;
  }
  void Pass() const {
    if (moment_ == change_.first) Put(change_.value);
    if (moment_ == change_.back) Put(change_.number->value);
    ++moment_;
  }
  void Put(uint64_t value) const {
    std::memcpy(file_ + change_.number->offset, &value, change_.number->size);
  }

  static ChangingPackage* current_;
  uint8_t* file_;
  Change change_;
  mutable size_t moment_ = 0;
};

ChangingPackage* ChangingPackage::current_ = nullptr;

// Every number takes another value between any two steps, for the next step alone or for good.
TEST(ApkPackage, AFileThatChangesBetweenStepsIsRefusedOrVerifiedAsItWas) {
  constexpr size_t kMoments = 8;
  SignerOptions rotated;
  rotated.attributes = {LineageAttribute(Lineage({&TestKey(KeyType::kP256, 1), rotated.key}))};
  const std::pair<ByteVector, const char*> kCases[] = {
      {PackageBuilder().Manifest().V2().Build(), "V2"},
      {PackageBuilder().Manifest().V3({rotated}).Build(), "V3"},
  };
  for (const auto& [file, version] : kCases) {
    const auto mapping = GuardedMapping(file);
    const auto numbers = NumbersOf(file);
    ByteVector goodKey;
    {
      ChangingPackage good(mapping, {kMoments, kMoments, &numbers.front(), 0});
      ASSERT_TRUE(good.ParseApkPackage() && good.VerifyApkPackage());
      ASSERT_EQ(kMoments, good.MomentCount());
      ASSERT_TRUE(good.GetMainPublicKey(goodKey));
    }
    for (const PackageNumber& number : numbers) {
      for (const uint64_t value : number.Others()) {
        for (size_t first = 0; first < kMoments; ++first) {
          for (const size_t back : {first + 1, kMoments}) {
            SCOPED_TRACE(std::string(version) + ", " + number.name + " is " +
                         std::to_string(value) + " from " + std::to_string(first) + " to " +
                         std::to_string(back));
            ChangingPackage package(mapping, {first, back, &number, value});
            if (!package.ParseApkPackage() || !package.VerifyApkPackage()) continue;
            ByteVector key;
            EXPECT_TRUE(package.GetMainPublicKey(key));
            EXPECT_EQ(goodKey, key);
            EXPECT_EQ(version, package.GetVersionName());
          }
        }
      }
    }
    EXPECT_TRUE(std::equal(file.begin(), file.end(), mapping->Data()));
  }
}

// The block's size is read twice, to find the block and to list its pairs.
TEST(ApkPackage, NoPairIsTakenFromBehindABlockThatGrows) {
  constexpr size_t kBehindCheckEnd = 3, kNever = 99;
  auto hostile =
      PutPairBehindBlock(PackageBuilder().Manifest().V2().Comment(ByteVector(65535)).Build());
  for (const uint64_t size : {hostile.blockSize.value + 1, hostile.longerBlockSize}) {
    const auto mapping = GuardedMapping(hostile.package);
    ChangingPackage package(mapping, {kBehindCheckEnd, kNever, &hostile.blockSize, size});
    const bool isParsed = package.ParseApkPackage();
    EXPECT_FALSE(isParsed) << size;
    if (!isParsed) continue;
    const ByteVector length = Wire().U64(1000008);
    std::copy(length.begin(), length.end(),
              const_cast<uint8_t*>(mapping->Data()) + hostile.pairLength.offset);
    EXPECT_FALSE(package.VerifyApkPackage());
  }
}

}  // namespace
}  // namespace Quill
