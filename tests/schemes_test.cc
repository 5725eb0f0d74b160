// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>
#include <functional>

#include "schemes/apk_signing_block_v2.h"
#include "schemes/apk_signing_block_v3.h"
#include "tests/support/scheme_outcome.h"

namespace Quill {
namespace {

using testing::ElementsAre, testing::EndsWith, testing::SizeIs;
using Base = ApkSignatureBlockBase;
using Chain = std::vector<ProofOfRotation>;
using Runner = SchemeOutcome (*)(Stage, const ByteVector&, const Regions&);

constexpr Runner kRunV2 = RunScheme<ApkSigningBlockV2>, kRunV3 = RunScheme<ApkSigningBlockV3>;
const Regions kContent = {{'c', 'o', 'n', 't', 'e', 'n', 't'}};
const std::string kBest = "I Found the best signature algorithm ID: 0x201~\n";
const std::string kBadSignedData = "E Can't parse signed data~\n";
const std::string kBadSigner = "E Can't parse signer data~\n";
const std::string kNoSigner = "E Can't check signer in APK V3 Signature format~\n";

SchemeOutcome VerifyV2(const std::vector<SignerOptions>& signers) {
  return kRunV2(Stage::kVerify, V2Value(signers, kContent), kContent);
}

SchemeOutcome VerifyV3(const std::vector<SignerOptions>& signers) {
  return kRunV3(Stage::kVerify, V3Value(signers, kContent), kContent);
}

// The value of a pair with one signer, cut to `size` bytes: as it is, with the lengths in front a
// byte too long, and with lengths that fit.
std::vector<ByteVector> Cuts(ByteVector value, size_t size, size_t signedDataSize) {
  std::vector<ByteVector> cuts(3, value);
  Put(cuts[1], 0, Wire().U32(value.size() - 3).U32(value.size() - 7));
  if (size >= 12) {
    Put(cuts[2], 0, Wire().U32(size - 4).U32(size - 8).U32(std::min(size - 12, signedDataSize)));
  }
  for (ByteVector& cut : cuts) cut.resize(size);
  return cuts;
}

// Returns the name of the field in the lines about a signer that does not parse, behind ">" where
// there is nothing left of it. The lines that follow must be `rest`.
std::string FieldThatDoesNotFit(const std::string& lines, const std::string& rest) {
  const size_t end = lines.find('~');
  EXPECT_EQ(rest, lines.substr(end + 2));
  std::string field = lines.substr(0, end);
  for (const auto& [text, mark] :
       {std::pair("E Can't parse ", ""), std::pair("E Can't iterate to the next field ", ">")}) {
    if (field.find(text) == 0) field.replace(0, std::strlen(text), mark);
  }
  return field;
}

// An empty field is a length of 0: 12 bytes of signed data and 8 behind are whole for v2, 20 and 16
// for v3. A cut number leaves nothing for the next field.
TEST(Signer, FailsAtTheFirstFieldThatDoesNotFit) {
  const struct {
    Runner run;
    size_t size, signedDataSize;
    std::string last;
    std::string fields;  // that do not fit, each with the first cut at which it does not
  } kSigners[] = {
      {kRunV2, 32, 12, kBadSigner,
       "0 digests, 16 >certificates, 17 certificates, 20 >attributes, 21 attributes, "
       "24 >signatures, 25 signatures, 28 >public key, "},
      {kRunV3, 48, 20, "",
       "0 digests, 16 >certificates, 17 certificates, 20 >minSDK, 21 >maxSDK, 25 >attributes, "
       "29 attributes, 32 >minSDK, 33 >maxSDK, 37 >signatures, 41 signatures, 44 >public key, "},
  };
  for (const auto& c : kSigners) {
    const ByteVector whole =
        Wire().U32(c.size - 4).U32(c.size - 8).U32(c.signedDataSize).Fill(c.size - 12);
    EXPECT_EQ("", c.run(Stage::kParse, whole, {}).lines);
    const std::string signedDataAndLast = kBadSignedData + c.last;
    std::string fields, previous;
    for (size_t size = 0; size < c.size; ++size) {
      for (const ByteVector& cut : Cuts(whole, size, c.signedDataSize)) {
        const std::string field =
            FieldThatDoesNotFit(c.run(Stage::kParse, cut, {}).lines,
                                size < 12 + c.signedDataSize ? signedDataAndLast : c.last);
        if (field != previous) fields += std::to_string(size) + " " + field + ", ";
        previous = field;
      }
    }
    EXPECT_EQ(c.fields, fields);
  }
  const std::string kDigests = "E Can't parse digests~\n" + kBadSignedData + kBadSigner;
  const std::string kPublicKey = "E Can't iterate to the next field public key~\n";
  const std::tuple<Runner, ByteVector, std::string> kValues[] = {
      {kRunV2, ByteVector(4), "E No signer in APK V2 Signature format~\n"},
      {kRunV3, ByteVector(4), "E No signer in APK V3 Signature format~\n"},
      // A sequence that ends inside its signer; a signer that ends behind the pair, one with a byte
      // behind its public key; a digest item whose length wraps around, one with a longer value.
      {kRunV2, Wire().U32(27).U32(24).U32(12).Fill(20),
       "E Can't iterate to the next field signer~\n"},
      {kRunV2, Wire().U32(29).U32(25).U32(12).Fill(20), kPublicKey + kBadSigner},
      {kRunV2, Wire().U32(29).U32(25).U32(12).Fill(21), kPublicKey + kBadSigner},
      {kRunV2, Wire().U32(32).U32(28).U32(16).U32(12).U32(4).U32(0x0103).U32(~3u).Fill(8),
       kDigests},
      {kRunV2, Wire().U32(46).U32(42).U32(27).U32(15).U32(11).U32(0x0103).U32(2).Fill(19),
       kDigests},
  };
  for (const auto& [run, value, lines] : kValues) {
    EXPECT_EQ(lines, run(Stage::kParse, value, {}).lines);
  }
}

TEST(Algorithms, TheMorePreferredIsChosenAndOfEqualsTheFirst) {
  std::vector<Digest> entries = {{0x0421, {}}};
  EXPECT_EQ(entries.end(), Base::FindBestSupportedAlgoId(entries));
  for (const uint32_t better : {0x0301u, 0x0103u, 0x0101u, 0x0201u, 0x0104u, 0x0102u, 0x0202u}) {
    entries.insert(entries.end(), 2, {better, {}});
    EXPECT_EQ(entries.end() - 2, Base::FindBestSupportedAlgoId(entries)) << better;
  }
}

TEST(Algorithms, EachVerifiesWithKeysOfItsKind) {
  const std::pair<uint32_t, KeyType> kCases[] = {
      {0x0101, KeyType::kRsa2048}, {0x0102, KeyType::kRsa2048}, {0x0103, KeyType::kRsa2048},
      {0x0104, KeyType::kRsa2048}, {0x0201, KeyType::kP384},    {0x0202, KeyType::kP521},
      {0x0301, KeyType::kDsa1024}};
  for (const auto& [algorithmId, type] : kCases) {
    SignerOptions options;
    options.key = &TestKey(type);
    options.signatureAlgorithms = {{0x0421, algorithmId}};
    EXPECT_TRUE(VerifyV2({options}).isVerified) << algorithmId;
  }
}

TEST(Signer, OneThatIsWrongInOnePlaceIsRefusedThere) {
  const SigningKey &own = TestKey(KeyType::kP256), &other = TestKey(KeyType::kP256, 1);
  const std::vector<ByteVector> otherFirst = {other.certificate, own.certificate};
  const std::vector<ByteVector> ownFirst = {own.certificate, other.certificate};
  const std::vector<ByteVector> malformed = {{1}};
  const std::vector<uint32_t> one = {0x0201, 0x0421}, reversed = {0x0421, 0x0201};
  const ByteVector v2WasStripped = Wire().U32(0xbeeff00d).U32(2);
  const ByteVector v3WasStripped = Wire().U32(0xbeeff00d).U32(3);
  const ByteVector lineage = LineageAttribute(Lineage({&other, &own}));
  const ByteVector otherLineage = LineageAttribute(Lineage({&own, &other}));
  const std::string badCertificates = "E Can't verify certificates~\n";
  const std::string badAttributes = "E Can't verify additional attributes~\n";
  const std::string badOrder = "E Can't compare order signatures and digests~\n";
  const struct {
    int scheme;
    std::function<void(SignerOptions&)> bend;
    std::string lines;  // without the best algorithm; none: it verifies
  } kCases[] = {
      {2, [](auto& o) { o.signatureAlgorithms.emplace(1, 0x0421); },
       "E Can't find supporting signing algorithm~\n"},
      {2, [](auto& o) { o.publicKey.emplace(); }, "E Can't initialize verifier object~\n"},
      {2, [&](auto& o) { o.publicKey = other.publicKey; }, "E Can't verify signature~\n"},
      {2, [](auto& o) { o.certificates.emplace(); },
       "E APK doesn't have certificates or public key of signer is empty\n" + badCertificates},
      {2, [&](auto& o) { o.certificates = malformed; },
       "E APK V2 has malformed certificate\nE Can't parse X509 certificate\n" + badCertificates},
      {2, [&](auto& o) { o.certificates = otherFirst; },
       "E Public keys of certificate and signer are mismatched\n" + badCertificates},
      {2, [&](auto& o) { o.certificates = ownFirst; }, ""},
      {2,
       [&](auto& o) {
         o.attributes = {Wire().U32(1), v2WasStripped};
       },
       "E APK V2 signature indicates APK is signed using APK Signature Scheme v3, but none was "
       "found. Signature stripped?~\n" +
           badAttributes},
      {2, [&](auto& o) { o.attributes = {v3WasStripped}; }, ""},
      {2,
       [](auto& o) {
         o.attributes = {Wire().U16(0xf00d)}, o.behindAttributes = {0xef, 0xbe};
       },
       "E Additional attributes is small: 2~\n" + badAttributes},
      {2, [&](auto& o) { o.signatureAlgorithms = one, o.digestAlgorithms = reversed; }, badOrder},
      {2, [&](auto& o) { o.digestAlgorithms = one; }, badOrder},
      {2, [](auto& o) { o.contentDigest.emplace(32); }, "E Can't verify digests of APK~\n"},
      {3, [](auto& o) { o.minSdk = 50, o.maxSdk = 60, o.signedMaxSdk = 61; },
       "E Not matched minSDK and maxSDK beetween signer and signed datasigner minSDK 50 "
       "!= signed data minSDK 50 orsigner maxSDK 60 != signed data maxSDK 61~\n" +
           kNoSigner},
      {3, [](auto& o) { o.signatureAlgorithms.emplace(); }, "E No signatures found for APK V3~\n"},
      {3, [&](auto& o) { o.attributes = {otherLineage}; },
       "E Terminal certificate in Proof-of-rotation record does not match             "
       "APK signing certificate~\nE Can't verify proof of rotation data~\n"},
      {3,
       [&](auto& o) {
         o.certificates = ownFirst, o.attributes = {lineage, v2WasStripped};
       },
       ""},
  };
  for (const auto& c : kCases) {
    SignerOptions options;
    c.bend(options);
    const auto outcome = c.scheme == 2 ? VerifyV2({options}) : VerifyV3({options});
    EXPECT_EQ(c.lines.empty(), outcome.isVerified);
    const size_t best = outcome.lines.find(kBest) == 0 ? kBest.size() : 0;
    EXPECT_EQ(c.lines, outcome.lines.substr(best)) << "row " << &c - kCases;
  }
}

TEST(ApkSigningBlockV2, EverySignerIsVerifiedAndYieldsItsKeyInOrder) {
  SignerOptions rsa, p384, bad;
  rsa.key = &TestKey(KeyType::kRsa2048);
  p384.key = &TestKey(KeyType::kP384);
  bad.publicKey = p384.key->publicKey;
  EXPECT_THAT(VerifyV2({p384, rsa}).publicKeys, ElementsAre(SizeIs(95), SizeIs(256)));
  EXPECT_FALSE(VerifyV2({rsa, bad, p384}).isVerified);
}

TEST(ApkSigningBlockV3, ExactlyOneSignerCoversThePlatform) {
  const auto none = "E Not found any signers~\n" + kNoSigner;
  const struct {
    const char* sdk;
    std::vector<std::pair<uint32_t, uint32_t>> ranges;
    std::string lines;
  } kCases[] = {
      {"30", {{24, 29}, {30, 30}, {31, 50}}, kBest},
      {"30", {{31, 40}, {24, 29}}, none},
      {"30", {{24, 30}, {30, 40}}, "E Don't support multiple signers: 2~\n" + kNoSigner},
      {"-1", {{0xffffffff, 0xffffffff}}, kBest},
      {"",
       {{24, 40}},
       "E Can't read property of the current version SDK~\n"
       "E Can't get version of the current SDK version~\n" +
           kNoSigner},
  };
  for (const auto& c : kCases) {
    std::vector<SignerOptions> signers(c.ranges.size());
    for (size_t i = 0; i < signers.size(); ++i) {
      std::tie(signers[i].minSdk, signers[i].maxSdk) = c.ranges[i];
      if (signers[i].maxSdk < 30) signers[i].publicKey.emplace();  // nobody looks at it
    }
    setenv("QUILLON_SDK", c.sdk, /*overwrite=*/1);
    const auto outcome = VerifyV3(signers);
    unsetenv("QUILLON_SDK");
    EXPECT_EQ(c.lines == kBest, outcome.isVerified);
    EXPECT_EQ(c.lines, outcome.lines);
  }
}

// A level: its signed part, flags, the algorithm's ID and the signature.
ByteVector Level(const ByteVector& signedPart, const ByteVector& behind) {
  return Wire().LengthPrefixed(Wire().LengthPrefixed(signedPart).Bytes(behind));
}

// An attribute: version, levels and the four bytes that are stored behind its value.
Attribute Record(const ByteVector& levels) {
  return {0x3ba06f8c, Wire().U32(1).Bytes(levels).Fill(4, 0xff)};
}

TEST(ProofOfRotation, LevelsFillTheOneRecordAndFieldsTheirLevel) {
  const ByteVector part = Wire().LengthPrefixed({1, 2}).U32(0x0201);
  const ByteVector behind = Wire().U32(5).U32(0x0202).LengthPrefixed({3});
  const ByteVector good = Level(part, behind);
  const std::string bad = "E Can't parse proof of rotation data~\n";
  const std::pair<std::vector<Attribute>, std::string> kCases[] = {
      {{{1, {}}, Record({}), Record({}), Record(good)}, ""},
      {{Record(Wire().Bytes(good).Bytes(Level(part, Wire().Bytes(behind).Fill(3))))}, ""},
      {{Record(Level(Wire().Bytes(part).U8(0), behind))}, bad},
      {{Record(Level(Wire().U32(7).Fill(6), behind))}, bad},
      {{Record(Wire().Bytes(good).U32(1))}, bad},
      {{{0x3ba06f8c, ByteVector(7)}}, bad},
      {{Record(good), {1, {}}, Record({})}, "E There can't be multiple proof of rotation data~\n"},
  };
  for (const auto& [attributes, lines] : kCases) {
    LogCapture log;
    ApkSigningBlockV3::SignedDataV3 signedData;
    signedData.attributes = attributes;
    EXPECT_EQ(lines.empty(), ApkSigningBlockV3::ParseAdditionalAttributes(signedData));
    EXPECT_EQ(lines, log.Take());
  }
}

// Gives a level another certificate, signed by the key of the level before.
void Replace(ProofOfRotation& level, const ByteVector& certificate, const SigningKey& before) {
  level.rotationCertificate.parsed.certificate = certificate;
  level.rotationCertificate.data = Wire().LengthPrefixed(certificate).U32(0);
  level.signature = Sign(before, before.algorithmId, level.rotationCertificate.data);
}

TEST(ProofOfRotation, EveryLinkIsSignedByTheKeyBefore) {
  const SigningKey &rsa = TestKey(KeyType::kRsa2048), &p384 = TestKey(KeyType::kP384);
  const Chain good = Lineage({&rsa, &TestKey(KeyType::kP256), &p384});
  const Chain repeated = Lineage({&p384, &TestKey(KeyType::kP256), &p384});
  const ByteVector unusable = CertificateOfUnknownKeyKind();
  const std::string chained = " certificate in proof of rotation chain";
  const struct {
    size_t keyCount;
    std::function<void(Chain&)> bend;
    std::string line;  // the last one; none: accepted
  } kCases[] = {
      {2, [](auto& c) { c[1].rotationCertificate.parsed.signedAlgorithmId = c[1].flags = 7; }, ""},
      {2, [](auto& c) { c[2].signatureAlgorithmId = 0x0421; }, ""},
      {1, [](auto& c) { c[1].signatureAlgorithmId = 0x0421; },
       "Can't find supporting hash algo for" + chained + ": #3"},
      {0, [](auto& c) { c[0].signatureAlgorithmId = 0x0201; },
       "Can't initialize verifier object in proof of rotation chain: #2"},
      {0, [](auto& c) { c[1].signature.back() ^= 1; },
       "Can't verify signature for" + chained + ": #2"},
      {0, [](auto& c) { c[0].rotationCertificate.parsed.certificate = {1}; },
       "Can't parse X509 certificate for certificate in proof ofrotation chain"},
      {0, [&](auto& c) { Replace(c[0], unusable, rsa); }, "Can't get public key for" + chained},
      {1, [&](auto& c) { Replace(c[1], {1}, rsa); },
       "Can't parse X509 certificate for" + chained + ": #2"},
      {1, [&](auto& c) { Replace(c[1], unusable, rsa); },
       "Can't get public key from" + chained + ": #2"},
      {2, [&](auto& c) { c = repeated; },
       "Encountered duplicate entries in proof of rotation record at certificate: #3"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.line);
    LogCapture log;
    Chain chain = good;
    c.bend(chain);
    std::vector<ByteVector> keys;
    EXPECT_EQ(c.line.empty(),
              ApkSigningBlockV3::VerifyProofRotation(chain, p384.certificate, keys));
    EXPECT_EQ(c.keyCount, keys.size());
    EXPECT_THAT(log.Take(), EndsWith(c.line.empty() ? "" : "E " + c.line + "~\n"));
  }
}

}  // namespace
}  // namespace Quill
