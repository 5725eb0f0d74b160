#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/opened_package.h"
#include "tests/support/package_builder.h"

namespace Quill {
namespace {

// Fills the fields that no signature covers, eight bytes or more of each.
constexpr uint8_t kOpen = 0xee;
const ByteVector kOpenField(8, kOpen);

class BitFlip : public testing::TestWithParam<int> {};

}  // namespace

// Without a JAR signature, so that falling back to one is a refusal too.
TEST_P(BitFlip, IsRefusedWhereverASignatureCoversTheBit) {
  SignerOptions signer, otherPlatforms;
  signer.signatureAlgorithms = {0x0201, 0x0202};
  signer.minSdk = 30;
  otherPlatforms.signatureAlgorithms = std::vector<uint32_t>();
  otherPlatforms.maxSdk = 29;
  otherPlatforms.certificates = {{kOpenField}};
  // Not 64 bytes of signer, which one bit of the length of all would leave out.
  otherPlatforms.publicKey = ByteVector(12, kOpen);
  PackageBuilder package = PackageBuilder().Manifest().Comment({1, 2, 3});
  package.Pair(0xeeeeeeee, ByteVector(4, kOpen));
  if (GetParam() == 2) {
    package.V2({signer}, kOpenField);
  } else {
    signer.attributes = {LineageAttribute(Lineage({&TestKey(KeyType::kP256, 1), signer.key}))};
    package.V3({signer, otherPlatforms}, kOpenField);
  }
  ByteVector file = package.Build();
  // The last such ID before the central directory is that of the weaker signature.
  const ByteVector directory = Wire().Text("PK\1\2"), weaker = Wire().U32(0x0201);
  const auto end = std::search(file.begin(), file.end(), directory.begin(), directory.end());
  const auto length = std::find_end(file.begin(), end, weaker.begin(), weaker.end()) + 4;
  std::fill_n(length + 4, *length, kOpen);
  std::vector<bool> isOpen(file.size());
  for (auto at = file.begin();; ++at) {
    at = std::search(at, file.end(), kOpenField.begin(), kOpenField.end());
    if (at == file.end()) break;
    std::fill_n(isOpen.begin() + (at - file.begin()), kOpenField.size(), true);
  }
  const OpenedPackage good(file);
  ASSERT_TRUE(good.isGoodApk && good.scheme == GetParam()) << good;
  for (size_t offset = 0; offset < file.size(); ++offset) {
    for (int bit = 0; bit < 8; ++bit) {
      const auto mask = static_cast<uint8_t>(1 << bit);
      file[offset] ^= mask;
      const OpenedPackage changed(file);
      file[offset] ^= mask;
      if (isOpen[offset]) {
        EXPECT_EQ(good, changed) << "bit " << bit << " at " << offset;
      } else {
        EXPECT_FALSE(changed.isGoodApk) << "bit " << bit << " at " << offset << "\n" << changed;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Schemes, BitFlip, testing::Values(2, 3));

}  // namespace Quill
