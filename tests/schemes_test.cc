// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <functional>

#include "schemes/apk_signing_block_v2.h"
#include "schemes/apk_signing_block_v3.h"
#include "tests/support/scheme_outcome.h"

namespace Quill {
namespace {

using testing::ElementsAre, testing::EndsWith, testing::SizeIs;
using Base = ApkSignatureBlockBase;
using Chain = std::vector<ProofOfRotation>;

const Regions kContent = {{'c', 'o', 'n', 't', 'e', 'n', 't'}};
const std::string kBest = "I Found the best signature algorithm ID: 0x201~\n";
const std::string kBadSignedData = "E Can't parse signed data~\n";
const std::string kBadSigner = "E Can't parse signer data~\n";
const std::string kNoSigner = "E Can't check signer in APK V3 Signature format~\n";

// The first line about a pair with a signer of those fields; none when they are taken.
template <typename Scheme>
std::string Refusal(const ByteVector& signedData, const ByteVector& behind) {
  const ByteVector signer = Wire().LengthPrefixed(signedData).Bytes(behind);
  const ByteVector value = Wire().LengthPrefixed(Sequence({signer}));
  const auto lines = RunScheme<Scheme>(Stage::kParse, value).lines;
  return lines.empty() ? "" : lines.substr(2, lines.find('~') - 2);
}

SchemeOutcome VerifyV2(const std::vector<SignerOptions>& signers,
                       const Regions& content = kContent) {
  return RunScheme<ApkSigningBlockV2>(Stage::kVerify, V2Value(signers, kContent), content);
}

SchemeOutcome VerifyV3(const std::vector<SignerOptions>& signers) {
  return RunScheme<ApkSigningBlockV3>(Stage::kVerify, V3Value(signers, kContent), kContent);
}

// An empty field is a length of 0: 12 and 8 bytes are whole for v2, 20 and 16 for v3. A number that
// is cut leaves nothing for the next field.
TEST(SignerItems, AFieldThatDoesNotFitIsNamed) {
  const auto v2 = [](size_t size, const ByteVector& rest = {}) {
    return Refusal<ApkSigningBlockV2>(Wire().Fill(size).Bytes(rest), ByteVector(8));
  };
  const auto behindV2 = [](const ByteVector& fields) {
    return Refusal<ApkSigningBlockV2>(ByteVector(12), fields);
  };
  const auto v3 = [](size_t inSignedData, size_t behind) {
    return Refusal<ApkSigningBlockV3>(ByteVector(inSignedData), ByteVector(behind));
  };
  const ByteVector beyond = Wire().U32(12).U32(4).U32(0x0103).U32(0xfffffffc);
  const ByteVector longItem = Wire().U32(15).U32(11).U32(0x0103).U32(2).Fill(3);
  const std::string next = "Can't iterate to the next field ";
  const std::pair<std::string, std::string> kCases[] = {
      {v2(3), "Can't parse digests"},
      {v2(0, beyond), "Can't parse digests"},
      {v2(0, longItem), "Can't parse digests"},
      {v2(4), next + "certificates"},
      {v2(4, Wire().U32(1)), "Can't parse certificates"},
      {v2(8), next + "attributes"},
      {v2(8, Wire().U32(1)), "Can't parse attributes"},
      {v2(12), ""},
      {behindV2({}), next + "signatures"},
      {behindV2(Wire().U32(1)), "Can't parse signatures"},
      {behindV2(ByteVector(7)), next + "public key"},
      {behindV2(ByteVector(9)), next + "public key"},
      {v3(8, 16), next + "minSDK"},
      {v3(11, 16), next + "maxSDK"},
      {v3(15, 16), next + "attributes"},
      {v3(20, 0), next + "minSDK"},
      {v3(20, 4), next + "maxSDK"},
      {v3(20, 7), next + "signatures"},
      {v3(20, 16), ""},
  };
  for (const auto& [refusal, line] : kCases) EXPECT_EQ(line, refusal);
  EXPECT_EQ("E No signer in APK V2 Signature format~\n",
            RunScheme<ApkSigningBlockV2>(Stage::kParse, ByteVector(4)).lines);
  EXPECT_EQ("E No signer in APK V3 Signature format~\n",
            RunScheme<ApkSigningBlockV3>(Stage::kParse, ByteVector(4)).lines);
  EXPECT_EQ(
      "E Can't iterate to the next field signer~\n",
      RunScheme<ApkSigningBlockV2>(Stage::kParse, Wire().U32(27).U32(24).U32(12).Fill(20)).lines);
}

// A signer of empty fields whose pair ends early, or a byte before the signer says: it is parsed as
// far as the pair goes. The lines change where the cut reaches the next field.
TEST(SignerItems, ASignerThatRunsPastItsPairFailsAtTheFirstFieldThatDoesNotFit) {
  const std::string next = "Can't iterate to the next field ";
  const ByteVector v2 = Wire().U32(28).U32(24).U32(12).Fill(12).Fill(8);
  const ByteVector v3 = Wire().U32(44).U32(40).U32(20).Fill(20).Fill(16);
  const auto lines = [](const auto& run, ByteVector value, size_t length, bool isLonger) {
    if (isLonger) Put(value, 0, Wire().U32(value.size() - 3).U32(value.size() - 7));
    value.resize(length);
    return run(Stage::kParse, ByteVector(value), Regions()).lines;
  };
  const struct {
    size_t firstCut;
    std::string line;
    bool isInSignedData;
  } kV2Cases[] =
      {
          {0, "Can't parse digests", true},       {16, next + "certificates", true},
          {17, "Can't parse certificates", true}, {20, next + "attributes", true},
          {21, "Can't parse attributes", true},   {24, next + "signatures", false},
          {25, "Can't parse signatures", false},  {28, next + "public key", false},
      },
    kV3Cases[] = {
        {0, "Can't parse digests", true},
        {16, next + "certificates", true},
        {17, "Can't parse certificates", true},
        {20, next + "minSDK", true},
        {21, next + "maxSDK", true},
        {25, next + "attributes", true},
        {29, "Can't parse attributes", true},
        {32, next + "minSDK", false},
        {33, next + "maxSDK", false},
        {37, next + "signatures", false},
        {41, "Can't parse signatures", false},
        {44, next + "public key", false},
    };
  const auto expectLines = [&](const auto& run, const ByteVector& value, const auto& cases,
                               const std::string& last) {
    const auto* row = std::begin(cases);
    for (size_t length = 0; length <= value.size(); ++length) {
      if (row + 1 != std::end(cases) && row[1].firstCut == length) ++row;
      const std::string expected =
          "E " + row->line + "~\n" + (row->isInSignedData ? kBadSignedData : "") + last;
      EXPECT_EQ(length == value.size() ? "" : expected, lines(run, value, length, false)) << length;
      EXPECT_EQ(expected, lines(run, value, length, true)) << length;
    }
  };
  expectLines(RunScheme<ApkSigningBlockV2>, v2, kV2Cases, kBadSigner);
  expectLines(RunScheme<ApkSigningBlockV3>, v3, kV3Cases, "");
}

// By itself an item is read as in a sequence. Its block ends where it ends.
TEST(SignerItems, AnItemAtAPointerIsBoundedByItsLength) {
  const auto parse = [](auto parseItem, auto record, const ByteVector& item) {
    const bool isParsed = parseItem(reinterpret_cast<const LengthValueItem*>(item.data()), record);
    EXPECT_TRUE(isParsed || (record.algorithmId == 0 && record.value.empty()));
    return isParsed && record.algorithmId == 0x0103 && record.value == ByteVector{0xd1, 0xd1};
  };
  for (const uint32_t length : {7, 9, 10, 11}) {
    ByteVector item = Wire().U32(length).U32(0x0103).U32(2).Fill(3, 0xd1);
    item.resize(4 + length);
    EXPECT_EQ(length == 10, parse(Base::ParseDigestItem, Digest(), ByteVector(item)));
    EXPECT_EQ(length == 10, parse(Base::ParseSignatureItem, Signature(), ByteVector(item)));
  }
  const ByteVector item = Wire().U32(6).U32(0xbeeff00d).U16(2);
  Attribute attribute;
  EXPECT_TRUE(
      Base::ParseAttributeItem(reinterpret_cast<const LengthValueItem*>(item.data()), attribute));
  EXPECT_EQ(0xbeeff00d, attribute.id);
  EXPECT_EQ(ByteVector(Wire().U16(2).Fill(4)), attribute.value);
}

// The value of one signer, cut everywhere; then once more with the lengths of the sequence and of
// the signer made to fit.
TEST(SignerItems, NoTruncationParses) {
  SignerOptions options;
  options.attributes = {LineageAttribute(Lineage({&TestKey(KeyType::kP256)}))};
  const auto expectRefusals = [](const auto& run, const ByteVector& value) {
    ASSERT_TRUE(run(Stage::kParse, value, {}).isParsed);
    for (size_t length = 0; length < value.size(); ++length) {
      ByteVector cut(value.data(), value.data() + length);
      EXPECT_FALSE(run(Stage::kParse, cut, {}).isParsed) << length;
      if (length < 8) continue;
      Put(cut, 0, Wire().U32(length - 4).U32(length - 8));
      EXPECT_FALSE(run(Stage::kParse, cut, {}).isParsed) << length;
    }
  };
  expectRefusals(RunScheme<ApkSigningBlockV2>, V2Value({options}, kContent));
  expectRefusals(RunScheme<ApkSigningBlockV3>, V3Value({options}, kContent));
}

TEST(Algorithms, TheMorePreferredIsChosenAndOfEqualsTheFirst) {
  std::vector<Digest> entries = {{0x0421, {}}};
  EXPECT_EQ(entries.end(), Base::FindBestSupportedAlgoId(entries));
  for (const uint32_t better : {0x0301u, 0x0103u, 0x0101u, 0x0201u, 0x0104u, 0x0102u, 0x0202u}) {
    entries.insert(entries.end(), 2, {better, {}});
    EXPECT_EQ(entries.end() - 2, Base::FindBestSupportedAlgoId(entries)) << better;
  }
}

TEST(ApkSigningBlockV2, EveryAlgorithmVerifiesWithKeysOfItsKind) {
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

TEST(ApkSigningBlockV2, ASignerThatIsWrongInOnePlaceIsRefusedThere) {
  const SigningKey& other = TestKey(KeyType::kP256, 1);
  const std::string badCertificates = "E Can't verify certificates~\n";
  const std::string badAttributes = "E Can't verify additional attributes~\n";
  const std::string stripped =
      "E APK V2 signature indicates APK is signed using APK Signature Scheme v3, but none was "
      "found. Signature stripped?~\n";
  // What is bent, and the lines behind that of the best algorithm; none when it verifies.
  const std::pair<std::function<void(SignerOptions&)>, std::string> kCases[] = {
      {[](auto& o) { o.publicKey.emplace(); }, "E Can't initialize verifier object~\n"},
      {[&](auto& o) { o.publicKey = other.publicKey; }, "E Can't verify signature~\n"},
      {[](auto& o) { o.certificates.emplace(); },
       "E APK doesn't have certificates or public key of signer is empty\n" + badCertificates},
      {[](auto& o) { o.certificates = {{{1}}}; },
       "E APK V2 has malformed certificate\nE Can't parse X509 certificate\n" + badCertificates},
      {[&](auto& o) { o.certificates->insert(o.certificates->begin(), other.certificate); },
       "E Public keys of certificate and signer are mismatched\n" + badCertificates},
      {[&](auto& o) { o.certificates->push_back(other.certificate); }, {}},
      {[](auto& o) { o.attributes.emplace_back(Wire().U32(0xbeeff00d).U32(2)); },
       stripped + badAttributes},
      {[](auto& o) { o.attributes.emplace_back(Wire().U32(0xbeeff00d).U32(3)); }, {}},
      {[](auto& o) {
         o.attributes = {Wire().U16(0xf00d)}, o.behindAttributes = {0xef, 0xbe};
       },
       "E Additional attributes is small: 2~\n" + badAttributes},
      {[](auto& o) { std::reverse(o.digestAlgorithms->begin(), o.digestAlgorithms->end()); },
       "E Can't compare order signatures and digests~\n"},
  };
  for (const auto& [bend, lines] : kCases) {
    SignerOptions options;
    options.signatureAlgorithms = options.digestAlgorithms = {{0x0201, 0x0421}};
    options.certificates = {{options.key->certificate}};
    options.attributes = {Wire().U32(1)};
    bend(options);
    const auto outcome = VerifyV2({options});
    EXPECT_EQ(lines.empty(), outcome.isVerified);
    EXPECT_EQ(kBest + lines, outcome.lines);
  }
  SignerOptions unknown;
  unknown.signatureAlgorithms = {{0x0421}};
  EXPECT_EQ("E Can't find supporting signing algorithm~\n", VerifyV2({unknown}).lines);
}

TEST(ApkSigningBlockV2, ContentMustBeWhatWasSigned) {
  EXPECT_EQ(kBest + "E Can't verify digests of APK~\n", VerifyV2({{}}, {{'C'}}).lines);
}

TEST(ApkSigningBlockV2, EverySignerIsVerifiedAndYieldsItsKeyInOrder) {
  SignerOptions rsa, p384, bad;
  rsa.key = &TestKey(KeyType::kRsa2048);
  p384.key = &TestKey(KeyType::kP384);
  bad.publicKey = p384.key->publicKey;
  const auto good = VerifyV2({p384, rsa});
  EXPECT_TRUE(good.isVerified);
  EXPECT_THAT(good.publicKeys, ElementsAre(SizeIs(95), SizeIs(256)));
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
    std::vector<SignerOptions> signers;
    for (const auto& [minSdk, maxSdk] : c.ranges) {
      SignerOptions& signer = signers.emplace_back();
      signer.minSdk = minSdk;
      signer.maxSdk = maxSdk;
      if (maxSdk < 30) signer.publicKey.emplace();  // nobody looks at it
    }
    setenv("QUILLON_SDK", c.sdk, /*overwrite=*/1);
    const auto outcome = VerifyV3(signers);
    unsetenv("QUILLON_SDK");
    EXPECT_EQ(c.lines == kBest, outcome.isVerified);
    EXPECT_EQ(c.lines, outcome.lines);
  }
}

TEST(ApkSigningBlockV3, ASignerThatIsWrongInOnePlaceIsRefusedThere) {
  const std::pair<std::function<void(SignerOptions&)>, std::string> kCases[] = {
      {[](auto& o) { o.minSdk = 50, o.maxSdk = 60, o.signedMaxSdk = 61; },
       "E Not matched minSDK and maxSDK beetween signer and signed datasigner minSDK 50 "
       "!= signed data minSDK 50 orsigner maxSDK 60 != signed data maxSDK 61~\n" +
           kNoSigner},
      {[](auto& o) { o.signatureAlgorithms.emplace(); }, "E No signatures found for APK V3~\n"},
      {[](auto& o) { o.attributes = {LineageAttribute(Lineage({&TestKey(KeyType::kP384)}))}; },
       kBest + "E Terminal certificate in Proof-of-rotation record does not match             "
               "APK signing certificate~\n"
               "E Can't verify proof of rotation data~\n"},
      {[](auto& o) { o.attributes = {Wire().U32(0xbeeff00d).U32(2)}; }, kBest},
  };
  for (const auto& [bend, lines] : kCases) {
    SignerOptions options;
    bend(options);
    const auto outcome = VerifyV3({options});
    EXPECT_EQ(lines == kBest, outcome.isVerified);
    EXPECT_EQ(lines, outcome.lines);
  }
}

TEST(ApkSigningBlockV3, KeysOfTheLineageComeBeforeTheSigners) {
  SignerOptions options;
  options.key = &TestKey(KeyType::kP384);
  options.attributes = {LineageAttribute(
      Lineage({&TestKey(KeyType::kRsa2048), &TestKey(KeyType::kP256), options.key}))};
  const auto outcome = VerifyV3({options});
  EXPECT_TRUE(outcome.isVerified);
  EXPECT_THAT(outcome.publicKeys, ElementsAre(SizeIs(256), SizeIs(63), SizeIs(95)));
}

// A level: its signed part, flags, the algorithm's ID and the signature.
ByteVector Level(const ByteVector& signedPart, const ByteVector& behind) {
  return Wire().LengthPrefixed(Wire().LengthPrefixed(signedPart).Bytes(behind));
}

// The stored value of an attribute: version, levels and the four bytes behind it.
ByteVector Value(const ByteVector& levels) { return Wire().U32(1).Bytes(levels).Fill(4, 0xff); }

TEST(ProofOfRotation, LevelsFillTheirValueAndFieldsTheirLevel) {
  const ByteVector part = Wire().LengthPrefixed({1, 2}).U32(0x0201);
  const ByteVector behind = Wire().U32(5).U32(0x0202).LengthPrefixed({3});
  const ByteVector good = Level(part, behind);
  const std::pair<ByteVector, bool> kCases[] = {
      {{}, true},
      {Wire().Bytes(good).Bytes(Level(part, Wire().Bytes(behind).Fill(3))), true},
      {Level(Wire().Bytes(part).U8(0), behind), false},
      {Level(Wire().U32(7).Fill(6), behind), false},
      {Wire().Bytes(good).U32(1), false},
  };
  for (const auto& [levels, isAccepted] : kCases) {
    Chain chain;
    EXPECT_EQ(isAccepted, ApkSigningBlockV3::ParseProofOfRotation(Value(levels), chain));
  }
}

TEST(ProofOfRotation, ASecondAttributeIsRefusedOnceThereAreLevels) {
  const Attribute empty = {0x3ba06f8c, ByteVector(8)};
  const Attribute oneLevel = {0x3ba06f8c, Value(Level(ByteVector(8), ByteVector(12)))};
  LogCapture log;
  ApkSigningBlockV3::SignedDataV3 signedData;
  signedData.attributes = {{1, {}}, empty, empty, oneLevel};
  EXPECT_TRUE(ApkSigningBlockV3::ParseAdditionalAttributes(signedData));
  signedData = {};
  signedData.attributes = {{0x3ba06f8c, ByteVector(7)}};
  EXPECT_FALSE(ApkSigningBlockV3::ParseAdditionalAttributes(signedData));
  EXPECT_EQ("E Can't parse proof of rotation data~\n", log.Take());
  signedData = {};
  signedData.attributes = {oneLevel, {1, {}}, empty};
  EXPECT_FALSE(ApkSigningBlockV3::ParseAdditionalAttributes(signedData));
  EXPECT_EQ("E There can't be multiple proof of rotation data~\n", log.Take());
}

// Gives a level another certificate, signed by the key of the level before.
void Replace(ProofOfRotation& level, const ByteVector& certificate, const SigningKey& before) {
  level.rotationCertificate.parsed.certificate = certificate;
  level.rotationCertificate.data = Wire().LengthPrefixed(certificate).U32(0);
  level.signature = Sign(before, before.algorithmId, level.rotationCertificate.data);
}

TEST(ProofOfRotation, EveryLinkIsSignedByTheKeyBefore) {
  const SigningKey& rsa = TestKey(KeyType::kRsa2048);
  const SigningKey& p384 = TestKey(KeyType::kP384);
  const Chain good = Lineage({&rsa, &TestKey(KeyType::kP256), &p384});
  const Chain repeated = Lineage({&p384, &TestKey(KeyType::kP256), &p384});
  const ByteVector unusable = CertificateOfUnknownKeyKind();
  const std::string chained = " certificate in proof of rotation chain";
  const struct {
    const char* name;
    std::function<void(Chain&)> bend;
    size_t keyCount;
    std::string line;  // the last one; none: accepted
  } kCases[] = {
      {"three levels", [](Chain&) {}, 2, ""},
      {"flags and signed algorithms mean nothing",
       [](Chain& c) { c[1].flags = c[1].rotationCertificate.parsed.signedAlgorithmId = 0x0421; }, 2,
       ""},
      {"the last level's algorithm means nothing",
       [](Chain& c) { c[2].signatureAlgorithmId = 0x0421; }, 2, ""},
      {"unknown algorithm", [](Chain& c) { c[1].signatureAlgorithmId = 0x0421; }, 1,
       "Can't find supporting hash algo for" + chained + ": #3"},
      {"algorithm of another kind", [](Chain& c) { c[0].signatureAlgorithmId = 0x0201; }, 0,
       "Can't initialize verifier object in proof of rotation chain: #2"},
      {"changed signature", [](Chain& c) { c[1].signature.back() ^= 1; }, 0,
       "Can't verify signature for" + chained + ": #2"},
      {"first malformed", [](Chain& c) { c[0].rotationCertificate.parsed.certificate = {1}; }, 0,
       "Can't parse X509 certificate for certificate in proof ofrotation chain"},
      {"first unusable", [&](Chain& c) { Replace(c[0], unusable, rsa); }, 0,
       "Can't get public key for" + chained},
      {"second malformed", [&](Chain& c) { Replace(c[1], {1}, rsa); }, 1,
       "Can't parse X509 certificate for" + chained + ": #2"},
      {"second unusable", [&](Chain& c) { Replace(c[1], unusable, rsa); }, 1,
       "Can't get public key from" + chained + ": #2"},
      {"certificate repeated", [&](Chain& c) { c = repeated; }, 2,
       "Encountered duplicate entries in proof of rotation record at certificate: #3"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
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
