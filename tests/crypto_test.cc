#include <gmock/gmock.h>
#include <openssl/nid.h>

#include "crypto/hash.h"
#include "crypto/verifier.h"
#include "crypto/x509_certificate.h"
#include "tests/support/log_capture.h"
#include "tests/support/signing_key.h"

namespace Quill {
namespace {

TEST(Hash, FeedsContinueUntilInitAndClonesGoTheirOwnWay) {
  const std::pair<int, const char*> kDigestsOfAbc[] = {
      {NID_sha1, "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {NID_sha256, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {NID_sha512,
       "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
       "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
  };
  for (const auto& [nid, expected] : kDigestsOfAbc) {
    const auto hash = Hash::CreateHashFromAlgoId(nid);
    EXPECT_EQ(nid, hash->Type());
    EXPECT_EQ(1, hash->Update("a", 1));
    const auto clone = hash->Clone();
    EXPECT_EQ(expected, Hex(clone->Digest("bc", 2)));
    EXPECT_EQ(expected, Hex(hash->Digest(ByteVector{'b', 'c'})));
    EXPECT_EQ(1, hash->Init());
    EXPECT_EQ(expected, Hex(hash->Digest("abc", 3)));
  }
}

TEST(Hash, UnknownAlgorithmHasNone) {
  LogCapture log;
  EXPECT_EQ(nullptr, Hash::CreateHashFromAlgoId(NID_md5));
  EXPECT_EQ(Lines(Error("Not supported crypto algorithms for hash: 4")), log.Take());
}

template <typename Kind>
std::unique_ptr<Verifier> Make() {
  return std::make_unique<Kind>();
}

TEST(Verifier, TakesAWholeKeyOfItsKindAndOneSignature) {
  const struct {
    std::unique_ptr<Verifier> (*make)();
    KeyType type;
    KeyType otherType;
    uint32_t algorithmId;
    size_t keyLength;  // 0 where it varies
    size_t behindKey;  // bytes that follow the key bytes in the DER form
  } kCases[] = {
      {Make<RSAVerifier>, KeyType::kRsa2048, KeyType::kP256, 0x0103, 256, 5},
      {Make<RSAPSSVerifier>, KeyType::kRsa2048, KeyType::kDsa1024, 0x0102, 256, 5},
      {Make<DSAVerifier>, KeyType::kDsa1024, KeyType::kRsa2048, 0x0301, 0, 0},
      {Make<ECDSAVerifier>, KeyType::kP256, KeyType::kRsa2048, 0x0201, 63, 0},
      {Make<ECDSAVerifier>, KeyType::kP521, KeyType::kDsa1024, 0x0202, 131, 0},
  };
  const ByteVector data = {'d', 'a', 't', 'a'};
  for (const auto& c : kCases) {
    SCOPED_TRACE(&c - kCases);
    const SigningKey& key = TestKey(c.type);
    const int nid = EVP_MD_type(AlgorithmDigest(c.algorithmId));
    const auto init = [&](Verifier& verifier, const ByteVector& der) {
      return verifier.Init(der, Hash::CreateHashFromAlgoId(nid));
    };
    const auto verifier = c.make();
    ByteVector keyBytes;
    EXPECT_FALSE(verifier->GetPublicKey(keyBytes));
    EXPECT_FALSE(init(*verifier, Wire().Bytes(key.publicKey).U8(0)));
    EXPECT_TRUE(verifier->GetPublicKey(keyBytes)) << "the key stays though bytes follow it";
    EXPECT_FALSE(init(*verifier, TestKey(c.otherType).publicKey));
    EXPECT_FALSE(verifier->GetPublicKey(keyBytes));
    ASSERT_TRUE(init(*verifier, key.publicKey));

    EXPECT_TRUE(verifier->GetPublicKey(keyBytes));
    if (c.keyLength != 0) {
      EXPECT_EQ(c.keyLength, keyBytes.size());
    }
    const auto end = key.publicKey.end() - static_cast<ptrdiff_t>(c.behindKey);
    EXPECT_EQ(ByteVector(end - static_cast<ptrdiff_t>(keyBytes.size()), end), keyBytes);

    const ByteVector signature = Sign(key, c.algorithmId, data);
    EXPECT_TRUE(verifier->Verify(data, signature));
    EXPECT_FALSE(verifier->Verify(data, signature)) << "the digest goes on from the first call";
    ASSERT_TRUE(init(*verifier, key.publicKey));
    EXPECT_FALSE(verifier->Verify({'D', 'a', 't', 'a'}, signature));
    ASSERT_TRUE(init(*verifier, key.publicKey));
    EXPECT_FALSE(verifier->Verify(data, {}));
  }
}

TEST(X509Certificate, KeyComesFromTheLastCertificateParsed) {
  const SigningKey& key = TestKey(KeyType::kP384);
  LogCapture log;
  X509Certificate certificate;
  ByteVector publicKey = {1};
  EXPECT_FALSE(certificate.GetPublicKey(publicKey));
  EXPECT_EQ(Lines(Error("X509 certificate is not initialized\n")), log.Take());

  EXPECT_TRUE(certificate.Parse(key.certificate));
  EXPECT_FALSE(certificate.Parse({}));
  EXPECT_EQ(Lines(Error("Input data of certificate is empty\n")), log.Take());
  EXPECT_TRUE(certificate.GetPublicKey(publicKey)) << "no data, so the one before stays";
  EXPECT_EQ(key.publicKey, publicKey);

  EXPECT_FALSE(certificate.Parse({0x30, 0x03, 0x02, 0x01, 0x00}));
  EXPECT_FALSE(certificate.GetPublicKey(publicKey));
  EXPECT_EQ(Lines(Error("APK V2 has malformed certificate\n"),
                  Error("X509 certificate is not initialized\n")),
            log.Take());

  EXPECT_TRUE(certificate.Parse(CertificateOfUnknownKeyKind()));
  EXPECT_FALSE(certificate.GetPublicKey(publicKey));
  EXPECT_EQ(key.publicKey, publicKey);
  const auto lines = log.Take();
  ASSERT_EQ(1u, lines.size());
  EXPECT_THAT(lines[0].text, testing::StartsWith("Can't get public key from certificate: error:"));
}

}  // namespace
}  // namespace Quill
