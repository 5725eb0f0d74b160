#include <gtest/gtest.h>

#include <functional>

#include "schemes/apk_signing_block_v3.h"
#include "tests/support/log_capture.h"
#include "tests/support/signers.h"

namespace Quill {
namespace {

using Chain = std::vector<ProofOfRotation>;

// A level: its signed part, flags, the algorithm's ID and the signature.
ByteVector Level(const ByteVector& signedPart, const ByteVector& behind) {
  return Wire().LengthPrefixed(Wire().LengthPrefixed(signedPart).Bytes(behind));
}

// The stored value of an attribute holds the four bytes behind it too.
bool Parse(const ByteVector& levels, Chain& chain) {
  return ApkSigningBlockV3::ParseProofOfRotation(Wire().U32(1).Bytes(levels).Fill(4, 0xff), chain);
}

TEST(ProofOfRotation, LevelsFillTheirValueAndFieldsTheirLevel) {
  const ByteVector part = Wire().LengthPrefixed({1, 2}).U32(0x0201);
  const ByteVector behind = Wire().U32(5).U32(0x0202).LengthPrefixed({3});
  const ByteVector good = Level(part, behind);
  const struct {
    const char* name;
    ByteVector levels;
    bool isAccepted;
    size_t count;
  } kCases[] = {
      {"version alone", {}, true, 0},
      {"two levels", Wire().Bytes(good).Bytes(good), true, 2},
      {"bytes behind the signature", Level(part, Wire().Bytes(behind).Fill(3)), true, 1},
      {"byte behind the signed algorithm", Level(Wire().Bytes(part).U8(0), behind), false, 0},
      {"certificate past the signed part", Level(Wire().U32(7).Fill(6), behind), false, 0},
      {"certificate past all", Level(Wire().U32(0xffffffff).Fill(6), behind), false, 0},
      {"level past the value", Wire().Bytes(good).U32(1), false, 1},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    Chain chain;
    EXPECT_EQ(c.isAccepted, Parse(c.levels, chain));
    EXPECT_EQ(c.count, chain.size());
  }
  Chain chain;
  ASSERT_TRUE(Parse(good, chain));
  EXPECT_EQ(part, chain[0].rotationCertificate.data);
  EXPECT_EQ((ByteVector{1, 2}), chain[0].rotationCertificate.parsed.certificate);
  EXPECT_EQ(0x0201u, chain[0].rotationCertificate.parsed.signedAlgorithmId);
  EXPECT_EQ(5u, chain[0].flags);
  EXPECT_EQ(0x0202u, chain[0].signatureAlgorithmId);
  EXPECT_EQ(ByteVector{3}, chain[0].signature);

  const ByteVector value = Wire().U32(1).Bytes(good).Fill(4);
  for (size_t length = 0; length < value.size(); ++length) {
    SCOPED_TRACE(length);
    ByteVector cut(value.begin(), value.begin() + static_cast<ptrdiff_t>(length));
    chain.clear();
    EXPECT_EQ(length == 8, ApkSigningBlockV3::ParseProofOfRotation(cut, chain));
    if (length < 12) continue;
    Put(cut, 4, Wire().U32(length - 12));  // the level is cut too, and not just its value
    EXPECT_FALSE(ApkSigningBlockV3::ParseProofOfRotation(cut, chain));
  }
}

TEST(ProofOfRotation, ASecondAttributeIsRefusedOnceThereAreLevels) {
  const Attribute empty = {0x3ba06f8c, ByteVector(8)};
  const Attribute oneLevel = {0x3ba06f8c,
                              Wire().U32(1).Bytes(Level(ByteVector(8), ByteVector(12))).Fill(4)};
  const Attribute cut = {0x3ba06f8c, ByteVector(7)};
  const struct {
    std::vector<Attribute> attributes;
    std::vector<LogLine> lines;
  } kCases[] = {
      {{{1, {}}, empty, empty, oneLevel}, {}},
      {{oneLevel, {1, {}}, empty}, Lines(Error("There can't be multiple proof of rotation data"))},
      {{cut}, Lines(Error("Can't parse proof of rotation data"))},
  };
  for (const auto& c : kCases) {
    LogCapture log;
    ApkSigningBlockV3::SignedDataV3 signedData;
    signedData.attributes = c.attributes;
    EXPECT_EQ(c.lines.empty(), ApkSigningBlockV3::ParseAdditionalAttributes(signedData));
    EXPECT_EQ(c.lines, log.Take());
  }
}

// Gives a level another certificate, signed by the key of the level before.
void Replace(ProofOfRotation& level, const ByteVector& certificate, const SigningKey& before) {
  level.rotationCertificate.parsed.certificate = certificate;
  level.rotationCertificate.data = Wire().LengthPrefixed(certificate).U32(0);
  level.signature = Sign(before, before.algorithmId, level.rotationCertificate.data);
}

TEST(ProofOfRotation, EveryLinkIsSignedByTheKeyBefore) {
  const SigningKey& rsa = TestKey(KeyType::kRsa2048);
  const SigningKey& p256 = TestKey(KeyType::kP256);
  const SigningKey& p384 = TestKey(KeyType::kP384);
  const Chain good = Lineage({&rsa, &p256, &p384});
  const struct {
    const char* name;
    std::function<void(Chain&)> bend;
    size_t keyCount;
    std::vector<LogLine> lines;
  } kCases[] = {
      {"three levels", [](Chain&) {}, 2, {}},
      {"one level", [](Chain& c) { c = {c[2]}; }, 0, {}},
      {"flags and signed algorithms mean nothing",
       [](Chain& c) {
         for (auto& level : c) {
           level.flags = 0xffffffff;
           level.rotationCertificate.parsed.signedAlgorithmId = 0x0421;
         }
       },
       2,
       {}},
      {"the last level's algorithm means nothing",
       [](Chain& c) { c[2].signatureAlgorithmId = 0x0421; },
       2,
       {}},
      {"last certificate is not the signer's",
       [](Chain& c) { c[2].rotationCertificate.parsed.certificate.back() ^= 1; }, 0,
       Lines(Error("Terminal certificate in Proof-of-rotation record does not match             "
                   "APK signing certificate"))},
      {"unknown algorithm", [](Chain& c) { c[1].signatureAlgorithmId = 0x0421; }, 1,
       Lines(Error("Not supported crypto algorithms for hash: 0x421"),
             Error("Can't find supporting hash algo for certificate in proof of rotation chain: "
                   "#3"))},
      {"algorithm of another kind", [](Chain& c) { c[0].signatureAlgorithmId = 0x0201; }, 0,
       Lines(Error("Can't initialize verifier object in proof of rotation chain: #2"))},
      {"changed signature", [](Chain& c) { c[1].signature.back() ^= 1; }, 0,
       Lines(Error("Can't verify signature for certificate in proof of rotation chain: #2"))},
      {"first certificate malformed",
       [](Chain& c) { c[0].rotationCertificate.parsed.certificate = {1}; }, 0,
       Lines(Error("APK V2 has malformed certificate\n"),
             Error("Can't parse X509 certificate for certificate in proof ofrotation chain"))},
      {"second certificate malformed", [&](Chain& c) { Replace(c[1], {1}, rsa); }, 1,
       Lines(Error("APK V2 has malformed certificate\n"),
             Error("Can't parse X509 certificate for certificate in proof of rotation chain: "
                   "#2"))},
      {"certificate repeated",
       [&](Chain& c) {
         c = Lineage({&p384, &p256, &p384});
       },
       2,
       Lines(Error("Encountered duplicate entries in proof of rotation record at certificate: "
                   "#3"))},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    LogCapture log;
    Chain chain = good;
    c.bend(chain);
    std::vector<ByteVector> keys;
    EXPECT_EQ(c.lines.empty(),
              ApkSigningBlockV3::VerifyProofRotation(chain, p384.certificate, keys));
    EXPECT_EQ(c.keyCount, keys.size());
    EXPECT_EQ(c.lines, log.Take());
  }
}

TEST(ProofOfRotation, ACertificateWithoutAUsableKeyEndsTheChain) {
  const SigningKey& key = TestKey(KeyType::kP256);
  const std::pair<size_t, const char*> kCases[] = {
      {0, "Can't get public key for certificate in proof of rotation chain"},
      {1, "Can't get public key from certificate in proof of rotation chain: #2"},
  };
  for (const auto& [position, line] : kCases) {
    Chain chain = Lineage({&key, &TestKey(KeyType::kP384)});
    Replace(chain[position], CertificateOfUnknownKeyKind(), key);
    LogCapture log;
    std::vector<ByteVector> keys;
    EXPECT_FALSE(ApkSigningBlockV3::VerifyProofRotation(
        chain, chain[1].rotationCertificate.parsed.certificate, keys));
    EXPECT_EQ(Error(line), log.Take().back());
  }
}

}  // namespace
}  // namespace Quill
