// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <openssl/digest.h>

#include "crypto/hash.h"
#include "crypto/verifier.h"
#include "tests/support/signing_key.h"

namespace Quill {
namespace {

template <typename Kind>
std::unique_ptr<Verifier> Make() {
  return std::make_unique<Kind>();
}

TEST(Verifier, TakesAWholeKeyOfItsKindAndOneSignature) {
  const struct {
    std::unique_ptr<Verifier> (*make)();
    KeyType type;
    uint32_t algorithmId;
    size_t keyLength;  // 0 where it varies
    size_t behindKey;  // bytes that follow the key bytes in the DER form
  } kCases[] = {
      {Make<RSAVerifier>, KeyType::kRsa2048, 0x0103, 256, 5},
      {Make<RSAPSSVerifier>, KeyType::kRsa2048, 0x0102, 256, 5},
      {Make<DSAVerifier>, KeyType::kDsa1024, 0x0301, 0, 0},
      {Make<ECDSAVerifier>, KeyType::kP521, 0x0202, 131, 0},
  };
  const ByteVector data = {'d', 'a', 't', 'a'};
  for (const auto& c : kCases) {
    SCOPED_TRACE(&c - kCases);
    const SigningKey& key = TestKey(c.type);
    const auto verifier = c.make();
    const auto init = [&](const ByteVector& der) {
      const int nid = EVP_MD_type(AlgorithmDigest(c.algorithmId));
      return verifier->Init(der, Hash::CreateHashFromAlgoId(nid));
    };
    ByteVector keyBytes;
    EXPECT_FALSE(verifier->GetPublicKey(keyBytes));
    EXPECT_FALSE(init(Wire().Bytes(key.publicKey).U8(0)));
    EXPECT_FALSE(init(TestKey(KeyType::kP256).certificate));
    ASSERT_TRUE(init(key.publicKey));
    EXPECT_TRUE(verifier->GetPublicKey(keyBytes));
    EXPECT_EQ(c.keyLength != 0 ? c.keyLength : keyBytes.size(), keyBytes.size());
    const auto* end = key.publicKey.data() + key.publicKey.size() - c.behindKey;
    EXPECT_EQ(ByteVector(end - keyBytes.size(), end), keyBytes);

    const ByteVector signature = Sign(key, c.algorithmId, data);
    EXPECT_TRUE(verifier->Verify(data, signature));
    EXPECT_FALSE(verifier->Verify(data, signature)) << "the digest goes on from the first call";
    ASSERT_TRUE(init(key.publicKey));
    EXPECT_FALSE(verifier->Verify({'D', 'a', 't', 'a'}, signature));
  }
}

}  // namespace
}  // namespace Quill
