// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/opened_package.h"

namespace Quill {
namespace {

// Returns a number of /proc/self/status.
int64_t ProcessStatus(const std::string& name) {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word && word != name) continue;
  int64_t value = 0;
  status >> value;
  return value;
}

// A package of one entry that declares an uncompressed length of 4 GiB less 2 bytes.
ByteVector Declaring4GiB(const std::string& name, uint16_t method, const ByteVector& contents) {
  constexpr uint32_t kLength = 0xfffffffe;
  Wire header = Wire().U16(20).U16(0).U16(method).Fill(8);
  header.U32(method == 0 ? kLength : contents.size()).U32(kLength);
  header.U16(static_cast<uint16_t>(name.size())).U16(0);
  const Wire file = Wire().Text("PK\3\4").Bytes(header).Text(name).Bytes(contents);
  const Wire entry = Wire().Text("PK\1\2").U16(20).Bytes(header).Fill(14).Text(name);
  Wire package = Wire().Bytes(file).Bytes(entry).Text("PK\5\6").Fill(4).U16(1).U16(1);
  return package.U32(entry.Size()).U32(file.Size()).U16(0);
}

// A package whose signer stands behind a lineage of one key, with certificates that differ.
ByteVector WithLineage(size_t levelCount) {
  const SigningKey& key = TestKey(KeyType::kP256);
  std::vector<SigningKey> levels(levelCount);
  std::vector<const SigningKey*> order;
  for (SigningKey& level : levels) {
    level = {bssl::UpRef(key.key), key.publicKey, key.certificate, key.algorithmId};
    Put(level.certificate, level.certificate.size() - 4, Wire().U32(order.size()));
    order.push_back(&level);
  }
  SignerOptions signer;
  signer.certificates = {levels.back().certificate};
  signer.attributes = {LineageAttribute(Lineage(order))};
  return PackageBuilder().Manifest().V3({signer}).Build();
}

PackageBuilder With(uint32_t pairCount, size_t entryCount) {
  PackageBuilder builder = PackageBuilder().Manifest();
  for (uint32_t id = 0; id < pairCount; ++id) builder.Pair(id, {});
  for (size_t i = 0; i < entryCount; ++i) builder.Entry("res/" + std::to_string(i), {'x'});
  return builder;
}

// A package whose signature file claims as many schemes, all without a name.
ByteVector WithSchemes(size_t count) {
  JarOptions options;
  options.apkSigned = std::string(count, ',');
  return PackageBuilder().Manifest().JarSignature(options).Build();
}

}  // namespace

// Each package is opened at little memory beyond what was resident before. A folder that
// QUILLON_HOSTILE_FOLDER names gets the files, to measure other programs with them.
TEST(HostileSizes, CostLittleMemoryAndGetAVerdict) {
  const std::string kXml = "AndroidManifest.xml";
  const ByteVector deflated = Wire().U8(1).U16(99).U16(0xff9c).Fill(99);
  const ByteVector bad(99, 0xff);
  const ByteVector zeros(96 << 20);
  const struct {
    const char* name;
    ByteVector package;
    bool isGood;
    std::string end;  // of the log
  } kRows[] = {
      {"4GiB-deflated", Declaring4GiB(kXml, 8, deflated), false, ": Inconsistent information\n"},
      {"4GiB-stored", Declaring4GiB(kXml, 0, bad), false, ": Invalid offset\n"},
      {"4GiB-method-12", Declaring4GiB(kXml, 12, bad), false, ": Iteration ended\n"},
      {"4GiB-bad-stream", Declaring4GiB(kXml, 8, bad), false, ": Zlib error\n"},
      {"schemes-4000000", WithSchemes(4000000), true, "V1 signature. APK: " + kMemoryPath + "\n"},
      {"pairs-100000", With(100000, 0).V2().Build(), true, "ID: 0x201~\n"},
      {"pairs-100000-of-no-scheme", With(100000, 0).Build(), false, ": Entry not found\n"},
      {"lineage-10000", WithLineage(10000), true, "ID: 0x201~\n"},
      {"signers-2000", With(0, 0).V2(std::vector<SignerOptions>(2000)).Build(), true, "0x201~\n"},
      {"entries-65535", With(0, 65534).V2().Build(), true, "ID: 0x201~\n"},
      {"entries-65535-jar", With(0, 65531).JarSignature().Build(), true, kMemoryPath + "\n"},
      {"zeros-in-the-pair", With(0, 0).V2({{}}, zeros).Build(), true, "ID: 0x201~\n"},
      {"no-end-record", zeros, false, ": Invalid file\n"},
  };
  // KiB, of which 20 MiB are pages of the largest file. Emulators and sanitizers keep what was
  // freed.
  constexpr int64_t kMostMemory = QUILLON_EMULATED || QUILLON_SANITIZED ? 2 << 20 : 64 << 10;
  for (const auto& row : kRows) {
    const Fd file = MemoryFile(row.package);
    if (const char* folder = std::getenv("QUILLON_HOSTILE_FOLDER")) {
      std::filesystem::copy_file("/proc/self/fd/" + std::to_string(file.GetFd()),
                                 std::string(folder) + "/" + row.name,
                                 std::filesystem::copy_options::overwrite_existing);
    }
    LogCapture log;
    std::ofstream("/proc/self/clear_refs") << 5;  // resets the peak
    const int64_t memory = ProcessStatus("VmRSS:");
    const bool isGood = Apk(file.GetFd(), /*ignoreHalyxFilter=*/true).IsGoodApk();
    EXPECT_GT(kMostMemory, ProcessStatus("VmHWM:") - memory) << row.name;
    EXPECT_EQ(row.isGood, isGood) << row.name;
    EXPECT_THAT(log.Take(), testing::EndsWith(row.end)) << row.name;
  }
}

}  // namespace Quill
