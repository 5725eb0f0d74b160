// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <openssl/digest.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <quillon/digest.h>

#include "crypto/verifier.h"
#include "tests/support/log_capture.h"
#include "tests/support/signing_key.h"

namespace Quill {
namespace {

const ByteVector kData = {'d', 'a', 't', 'a'};

bool Init(Verifier& verifier, const EVP_MD* md, const ByteVector& publicKey) {
  return verifier.Init(publicKey, Hash::CreateHashFromAlgoId(EVP_MD_type(md)));
}

TEST(Verifier, TakesAWholeKeyOfItsKindAndOneSignature) {
  RSAVerifier rsa;
  RSAPSSVerifier pss;
  DSAVerifier dsa;
  ECDSAVerifier ecdsa;
  const struct {
    Verifier& verifier;
    const char* key;
    uint32_t algorithmId;
    size_t behindKey;  // bytes that follow the key bytes in the DER form
  } kCases[] = {{rsa, "rsa2048-0", 0x0103, 5},
                {pss, "rsa2048-0", 0x0102, 5},
                {dsa, "dsa1024-0", 0x0301, 0},
                {ecdsa, "p521-0", 0x0202, 0}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(&c - kCases);
    const SigningKey& key = TestKey(c.key);
    const EVP_MD* md = AlgorithmDigest(c.algorithmId);
    ByteVector keyBytes;
    EXPECT_FALSE(c.verifier.GetPublicKey(keyBytes));
    EXPECT_FALSE(Init(c.verifier, md, Wire().Bytes(key.publicKey).U8(0)));
    EXPECT_FALSE(Init(c.verifier, md, TestKey("p256-0").certificate));
    ASSERT_TRUE(Init(c.verifier, md, key.publicKey));
    EXPECT_TRUE(c.verifier.GetPublicKey(keyBytes));
    EXPECT_GE(keyBytes.size(), 128u);
    const auto* end = key.publicKey.data() + key.publicKey.size() - c.behindKey;
    EXPECT_EQ(ByteVector(end - keyBytes.size(), end), keyBytes);

    const ByteVector signature = Sign(key, c.algorithmId, kData);
    EXPECT_TRUE(c.verifier.Verify(kData, signature));
    EXPECT_FALSE(c.verifier.Verify(kData, signature)) << "the digest goes on from the first call";
    ASSERT_TRUE(Init(c.verifier, md, key.publicKey));
    EXPECT_FALSE(c.verifier.Verify({'D', 'a', 't', 'a'}, signature));
  }
}

TEST(Verifier, APssSaltIsAsLongAsTheDigest) {
  const SigningKey& key = TestKey("rsa2048-0");
  const ByteVector digest = DigestOf(EVP_sha256(), kData);
  for (const int saltLength : {20, 32}) {
    size_t length = 0;
    ByteVector signature(256);
    ASSERT_TRUE(RSA_sign_pss_mgf1(EVP_PKEY_get0_RSA(key.key.get()), &length, signature.data(),
                                  signature.size(), digest.data(), digest.size(), EVP_sha256(),
                                  /*mgf1_md=*/nullptr, saltLength));
    RSAPSSVerifier verifier;
    ASSERT_TRUE(Init(verifier, EVP_sha256(), key.publicKey));
    EXPECT_EQ(saltLength == 32, verifier.Verify(kData, signature));
  }
}

TEST(Verifier, ADsaKeyWithoutParametersHasNoBytes) {
  DSAVerifier verifier;
  ASSERT_TRUE(Init(verifier, EVP_sha256(),
                   {0x30, 0x11, 0x30, 0x09, 0x06, 0x07, 0x2a, 0x86, 0x48, 0xce, 0x38, 0x04, 0x01,
                    0x03, 0x04, 0x00, 0x02, 0x01, 0x05}));
  ByteVector keyBytes;
  EXPECT_FALSE(verifier.GetPublicKey(keyBytes));
}

TEST(Hash, ACloneGoesOnFromWhatWasFed) {
  HashSHA256 hash;
  hash.Update({'d', 'a'});
  const auto clone = hash.Clone();
  EXPECT_EQ(DigestOf(EVP_sha256(), kData), hash.Digest({'t', 'a'}));
  EXPECT_EQ(DigestOf(EVP_sha256(), kData), clone->Digest({'t', 'a'}));
  ByteVector bytes = kData;  // is both the input and the output
  ComputeSHA256Digest(bytes, bytes);
  EXPECT_EQ(DigestOf(EVP_sha256(), kData), bytes);
}

TEST(Hash, OfAnUnknownAlgorithmIsNotCreated) {
  LogCapture log;
  EXPECT_EQ(nullptr, Hash::CreateHashFromAlgoId(NID_md5));
  EXPECT_EQ("E Not supported crypto algorithms for hash: 4~\n", log.Take());
}

}  // namespace
}  // namespace Quill
