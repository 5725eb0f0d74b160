// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "anatomy/coverage.h"
#include "tests/support/opened_package.h"

namespace Quill {
namespace {

// Returns, for each byte, whether a signature that the verifier has checked covers it ('v'), none
// covers it ('n'), or one that it has not looked at (' ').
std::string CheckedBytes(const ByteVector& file, const OpenedPackage& good) {
  const auto package = Anatomy::ReadPackage(GuardedMapping(file));
  EXPECT_TRUE(IsTiled(package.file));
  std::string checked(file.size(), ' ');
  for (const auto& one : CoverageOf(package, {good.scheme, true, {}})) {
    for (const auto& range : one.ranges) {
      if (one.checked == Anatomy::Checked::kVerified) {
        checked.replace(range.offset, range.size, range.size, 'v');
      } else if (one.by == "nothing") {
        checked.replace(range.offset, range.size, range.size, 'n');
      }
    }
  }
  return checked;
}

// A change of what a signature covers is refused, and one of the rest changes nothing. Signatures
// cover everything but the ID and value of an unknown pair (8 bytes), the signature besides the
// strongest (256), the bytes behind the signers (2), and in v3 the certificate and the public key
// of a signer for other platforms (3 and 1). A JAR signature covers contents alone (and what the
// archive needs to find them is not looked at). Without one the fallback to it is a refusal too.
TEST(BitFlip, IsRefusedWhereverASignatureCoversTheBit) {
  SignerOptions signer, otherPlatforms;
  signer.key = &TestKey("rsa2048-0");
  signer.signatureAlgorithms = {0x0103, 0x0104};
  signer.minSdk = 30;
  otherPlatforms.signatureAlgorithms.emplace();
  otherPlatforms.certificates = {{1, 2, 3}};
  otherPlatforms.publicKey = {4};
  otherPlatforms.maxSdk = 29;
  SignerOptions rotated = signer;
  rotated.attributes = {LineageAttribute(Lineage({&TestKey("p256-0"), signer.key}))};
  const auto package = PackageBuilder().Manifest().Entry("classes.dex", {7, 8});
  const auto block = PackageBuilder(package).Pair(0x12345678, {4, 5, 6, 7}).Comment({1, 2});
  const ByteVector behind = {6, 7};
  const auto unlisted = PackageBuilder(package).JarSignature().Entry("later", {9, 9, 9});
  const std::tuple<int, ByteVector, ptrdiff_t> kCases[] = {
      {2, PackageBuilder(block).V2({signer}, behind).Build(), 8 + 256 + 2},
      {3, PackageBuilder(block).V3({rotated, otherPlatforms}, behind).Build(), 8 + 256 + 2 + 3 + 1},
      {1, PackageBuilder(unlisted).Comment({1, 2}).Build(), 3 + 2},
  };
  for (auto [scheme, file, openBytes] : kCases) {
    const OpenedPackage good(file);
    ASSERT_TRUE(good.isGoodApk && good.scheme == scheme) << good.log;
    const std::string checked = CheckedBytes(file, good);
    const ptrdiff_t openCount = std::count_if(checked.begin(), checked.end(), [&](char byte) {
      return byte == 'n' || (byte == ' ' && good.scheme != 1);
    });
    EXPECT_EQ(openBytes, openCount) << checked;
    for (size_t bit = 0; bit < 8 * file.size(); ++bit) {
      const char byte = checked[bit / 8];
      if (byte == ' ' && scheme == 1) continue;
      const auto mask = static_cast<uint8_t>(1 << bit % 8);
      file[bit / 8] ^= mask;
      const OpenedPackage changed(file);
      file[bit / 8] ^= mask;
      EXPECT_TRUE(byte == 'v' ? !changed.isGoodApk : changed == good) << bit / 8 << byte << "\n"
                                                                      << changed.log;
    }
  }
}

}  // namespace
}  // namespace Quill
