// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <map>

#include "tests/support/opened_package.h"
#include "tests/support/package_builder.h"

namespace Quill {
namespace {

const ByteVector kComment = {1, 2, 3};

// Steps through a package and keeps the bytes of open fields, each with the field's name.
struct Walk {
  const ByteVector& file;
  size_t offset;
  std::map<size_t, const char*> openBytes;

  size_t Number(size_t size) {
    size_t number = 0;
    for (size_t i = 0; i < size; ++i) number |= size_t{file.at(offset++)} << (8 * i);
    return number;
  }
  void Covered(size_t size) { offset += size; }
  void Open(const char* field, size_t size) {
    for (const size_t end = offset + size; offset < end; ++offset) openBytes[offset] = field;
  }
};

// The bytes of the test's package that no signature covers.
std::map<size_t, const char*> OpenBytes(const ByteVector& file, int scheme) {
  Walk walk{file, file.size() - kComment.size() - 6, {}};
  const size_t centralDirectory = walk.Number(4);
  walk.offset = centralDirectory - 24;
  walk.offset = centralDirectory - walk.Number(8);
  walk.Open("ID and value of an unknown pair", walk.Number(8));

  const size_t pairLength = walk.Number(8);
  const size_t pairEnd = walk.offset + pairLength;
  const size_t sdkRange = scheme == 3 ? 8 : 0;
  walk.Covered(4 + 4 + 4);       // ID of the pair, lengths of signers and of the first
  walk.Covered(walk.Number(4));  // signed data
  walk.Covered(sdkRange);
  walk.Covered(4 + 4 + 4);  // lengths of signatures and of the first, its algorithm
  walk.Open("signature besides the strongest", walk.Number(4));
  walk.Covered(walk.Number(4));  // the strongest
  walk.Covered(walk.Number(4));  // public key
  if (scheme == 3) {
    walk.Covered(4 + 4 + 4 + 4);  // lengths of signer, signed data, no digests, certificates
    walk.Open("certificate of a signer for other platforms", walk.Number(4));
    walk.Covered(sdkRange + 4 + sdkRange + 4);  // no attributes, no signatures
    walk.Open("public key of a signer for other platforms", walk.Number(4));
  }
  walk.Open("bytes behind the signers", pairEnd - walk.offset);
  return walk.openBytes;
}

class BitFlip : public testing::TestWithParam<int> {};

}  // namespace

// Without a JAR signature, so that falling back to one is a refusal too.
TEST_P(BitFlip, IsRefusedWhereverASignatureCoversTheBit) {
  SignerOptions signer, otherPlatforms;
  signer.signatureAlgorithms = {0x0201, 0x0202};
  signer.minSdk = 30;
  otherPlatforms.signatureAlgorithms = std::vector<uint32_t>();
  otherPlatforms.maxSdk = 29;
  PackageBuilder package;
  package.Manifest().Pair(0x12345678, {4, 5}).Comment(kComment);
  if (GetParam() == 2) {
    package.V2({signer}, {6, 7});
  } else {
    signer.attributes = {LineageAttribute(Lineage({&TestKey(KeyType::kP256, 1), signer.key}))};
    package.V3({signer, otherPlatforms}, {6, 7});
  }
  ByteVector file = package.Build();
  const OpenedPackage good(file);
  ASSERT_TRUE(good.isGoodApk && good.scheme == GetParam()) << good;
  const auto openBytes = OpenBytes(file, GetParam());
  for (size_t offset = 0; offset < file.size(); ++offset) {
    const auto open = openBytes.find(offset);
    for (int bit = 0; bit < 8; ++bit) {
      const auto mask = static_cast<uint8_t>(1 << bit);
      file[offset] ^= mask;
      const OpenedPackage changed(file);
      file[offset] ^= mask;
      if (open == openBytes.end()) {
        EXPECT_FALSE(changed.isGoodApk) << "bit " << bit << " at " << offset << "\n" << changed;
      } else {
        EXPECT_EQ(good, changed) << "bit " << bit << " at " << offset << ", " << open->second;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Schemes, BitFlip, testing::Values(2, 3));

}  // namespace Quill
