// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "tests/support/opened_package.h"

namespace Quill {

// Signatures cover everything but the ID and value of an unknown pair (8 bytes), the signature
// besides the strongest (256), the bytes behind the signers (2), and in v3 the certificate and the
// public key of a signer for other platforms (3 and 1). A change of these changes nothing. Without
// a JAR signature the fallback to it is a refusal too.
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
  const ByteVector behind = {6, 7};
  const auto package = PackageBuilder().Manifest().Pair(0x12345678, {4, 5, 6, 7}).Comment({1, 2});
  const std::tuple<int, ByteVector, size_t> kCases[] = {
      {2, PackageBuilder(package).V2({signer}, behind).Build(), 8 + 256 + 2},
      {3, PackageBuilder(package).V3({rotated, otherPlatforms}, behind).Build(),
       8 + 256 + 2 + 3 + 1},
  };
  for (auto [scheme, file, openBytes] : kCases) {
    const OpenedPackage good(file);
    ASSERT_TRUE(good.isGoodApk && good.scheme == scheme) << good.log;
    size_t openBits = 0;
    for (size_t bit = 0; bit < 8 * file.size(); ++bit) {
      const auto mask = static_cast<uint8_t>(1 << bit % 8);
      file[bit / 8] ^= mask;
      const OpenedPackage changed(file);
      file[bit / 8] ^= mask;
      openBits += changed == good;
      EXPECT_TRUE(changed == good || !changed.isGoodApk) << bit << "\n" << changed.log;
    }
    EXPECT_EQ(8 * openBytes, openBits);
  }
}

}  // namespace Quill
