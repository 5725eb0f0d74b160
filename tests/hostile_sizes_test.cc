// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include <quillon/apk.h>

#include "tests/support/log_capture.h"
#include "tests/support/package_builder.h"
#include "tests/support/package_numbers.h"
#include "tests/support/temp_file.h"

namespace Quill {
namespace {

// A number of /proc/self/status.
int64_t ProcessStatus(const std::string& name) {
  std::ifstream status("/proc/self/status");
  std::string word;
  int64_t value = 0;
  while (status >> word && word != name) continue;
  status >> value;
  return value;
}

// Opens a package at little memory beyond what was resident before, and returns its last line.
// Where QUILLON_HOSTILE_FOLDER names a folder the file is kept there, to be measured by itself.
std::string LastLine(const std::string& name, const Fd& file, bool isGoodApk) {
  // KiB, of which 20 MiB are the largest file's pages. Emulators and sanitizers keep what was
  // freed.
  constexpr int64_t kMostMemory = QUILLON_EMULATED || QUILLON_SANITIZED ? 2 << 20 : 64 << 10;
  if (const char* folder = std::getenv("QUILLON_HOSTILE_FOLDER")) {
    std::filesystem::copy_file("/proc/self/fd/" + std::to_string(file.GetFd()),
                               std::string(folder) + "/" + name,
                               std::filesystem::copy_options::overwrite_existing);
  }
  LogCapture log;
  std::ofstream("/proc/self/clear_refs") << 5;  // the peak starts anew
  const int64_t memory = ProcessStatus("VmRSS:");
  EXPECT_EQ(isGoodApk, Apk(file.GetFd(), /*ignoreHalyxFilter=*/true).IsGoodApk()) << name;
  EXPECT_GT(kMostMemory, ProcessStatus("VmHWM:") - memory) << name;
  const std::string lines = log.Take();
  return lines.substr(lines.rfind('\n', lines.size() - 2) + 1);
}

// A package with an entry that declares 4 GiB less 2 bytes in both of its headers, and there the
// method, if one is given.
ByteVector Declaring4GiB(const std::string& entry, Compression compression,
                         std::optional<uint16_t> method = {}) {
  PackageBuilder builder;
  if (entry != "AndroidManifest.xml") builder.Manifest();
  ByteVector package = builder.Entry(entry, ByteVector(99), compression).Build();
  const ByteVector length = Wire().U32(0xfffffffe);
  for (const auto& [magic, offset] : {std::pair("PK\3\4", 22U), std::pair("PK\1\2", 24U)}) {
    const ByteVector start = Wire().Text(magic);
    const auto header = std::find_end(package.begin(), package.end(), start.begin(), start.end());
    const size_t field = static_cast<size_t>(header - package.begin()) + offset;
    Put(package, field, length);
    if (method) {
      Put(package, field - 14, Wire().U16(*method));
    } else if (compression == Compression::kStored) {
      Put(package, field - 4, length);
    }
  }
  return package;
}

// A signer behind a lineage of one key, whose certificates differ in a name.
SignerOptions SignerWithLineage(size_t levelCount) {
  const SigningKey& key = TestKey(KeyType::kP256);
  const std::string name = "quillon test";
  std::vector<SigningKey> levels(levelCount);
  std::vector<const SigningKey*> order;
  for (SigningKey& level : levels) {
    level = {bssl::UpRef(key.key), key.publicKey, key.certificate, key.algorithmId};
    ByteVector& bytes = level.certificate;
    const std::string number = std::to_string(100000000000 + order.size());
    std::copy(number.begin(), number.end(),
              std::search(bytes.begin(), bytes.end(), name.begin(), name.end()));
    order.push_back(&level);
  }
  SignerOptions signer;
  signer.certificates = {order.back()->certificate};
  signer.attributes = {LineageAttribute(Lineage(order))};
  return signer;
}

PackageBuilder WithPairs(uint32_t count) {
  PackageBuilder builder = PackageBuilder().Manifest();
  for (uint32_t id = 0; id < count; ++id) builder.Pair(id, {});
  return builder;
}

// A signature file that claims as many schemes without a name.
PackageBuilder WithSchemes(size_t count) {
  JarOptions options;
  options.apkSigned = std::string(count, ',');
  return PackageBuilder().Manifest().JarSignature(options);
}

// A v2 package with zeros inside its pair, behind the signers: what stands before and behind them.
std::pair<ByteVector, ByteVector> AroundZerosInThePair(uint64_t zeroCount) {
  ByteVector package = PackageBuilder().Manifest().V2().Build();
  ptrdiff_t footer = 0;
  for (const PackageNumber& number : NumbersOf(package)) {
    const std::string name = number.name;
    const auto offset = static_cast<ptrdiff_t>(number.offset);
    if (name == "block size in the footer") footer = offset;
    if (name == "block size in the footer" || name == "block size" || name == "pair" ||
        name == "offset of the central directory") {
      const ByteVector longer = Wire().U64(number.value + zeroCount);
      std::copy_n(longer.begin(), number.size, package.begin() + offset);
    }
  }
  return {{package.begin(), package.begin() + footer}, {package.begin() + footer, package.end()}};
}

PackageBuilder WithEntries(size_t count) {
  PackageBuilder builder = PackageBuilder().Manifest();
  for (size_t i = 1; i < count; ++i) builder.Entry("res/" + std::to_string(i), {'x'});
  return builder;
}

}  // namespace

TEST(HostileSizes, CostLittleMemoryAndGetAVerdict) {
  const std::string kBestAlgorithm = "I Found the best signature algorithm ID: 0x201~\n";
  const std::string kFallback =
      "I Fallback to APK V1 signature. APK: /memfd:quillon-test (deleted)\n";
  const std::string kAndroidManifest = "AndroidManifest.xml";
  const struct {
    std::string name;
    ByteVector package;
    std::string lastLine;  // none of an error when the package is good
  } kCases[] = {
      {"manifest-4GiB-deflated", Declaring4GiB(kAndroidManifest, Compression::kDeflated),
       "I Can't extract Android Manifest: Inconsistent information\n"},
      {"manifest-4GiB-stored", Declaring4GiB(kAndroidManifest, Compression::kStored),
       "I Can't extract Android Manifest: Invalid offset\n"},
      {"jar-manifest-4GiB-deflated", Declaring4GiB(Apk::kMANIFEST_MF, Compression::kDeflated),
       "E Can't extract manifest: Inconsistent information\n"},
      {"jar-manifest-4GiB-stored", Declaring4GiB(Apk::kMANIFEST_MF, Compression::kStored),
       "E Can't extract manifest: Invalid offset\n"},
      {"manifest-4GiB-method-12", Declaring4GiB(kAndroidManifest, Compression::kStored, 12),
       "I Can't extract Android Manifest: Iteration ended\n"},
      {"manifest-4GiB-bad-stream", Declaring4GiB(kAndroidManifest, Compression::kStored, 8),
       "I Can't extract Android Manifest: Zlib error\n"},
      {"jar-manifest-4GiB-method-1", Declaring4GiB(Apk::kMANIFEST_MF, Compression::kStored, 1),
       "E Can't extract manifest: Iteration ended\n"},
      {"schemes-4000000", WithSchemes(4000000).Build(), kFallback},
      {"pairs-100000", WithPairs(100000).V2().Build(), kBestAlgorithm},
      {"pairs-100000-of-no-scheme", WithPairs(100000).Build(),
       "E Can't extract manifest: Entry not found\n"},
      {"lineage-10000", PackageBuilder().Manifest().V3({SignerWithLineage(10000)}).Build(),
       kBestAlgorithm},
      {"signers-2000", PackageBuilder().Manifest().V2(std::vector<SignerOptions>(2000)).Build(),
       kBestAlgorithm},
      {"entries-65535", WithEntries(65535).V2().Build(), kBestAlgorithm},
      {"entries-65535-jar", WithEntries(65535 - 3).JarSignature().Build(), kFallback},
  };
  for (const auto& c : kCases) {
    const bool isGoodApk = c.lastLine.find("Can't") == std::string::npos;
    EXPECT_EQ(c.lastLine, LastLine(c.name, MemoryFile(c.package), isGoodApk)) << c.name;
  }

  constexpr off_t kHole = 1 << 30;
  const auto [head, tail] = AroundZerosInThePair(kHole);
  const Fd padded = MemoryFile(head);
  ASSERT_EQ(static_cast<ssize_t>(tail.size()), pwrite(padded.GetFd(), tail.data(), tail.size(),
                                                      static_cast<off_t>(head.size()) + kHole));
  EXPECT_EQ(kBestAlgorithm, LastLine("zeros-in-the-pair-1GiB", padded, true));

  const Fd hole = MemoryFile({});
  ASSERT_EQ(0, ftruncate(hole.GetFd(), kHole));
  const std::string line = LastLine("no-end-record-1GiB", hole, false);
  EXPECT_EQ("Invalid file\n", line.substr(line.rfind(": ") + 2));
}

}  // namespace Quill
