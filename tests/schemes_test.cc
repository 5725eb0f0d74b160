#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>

#include "schemes/apk_signing_block_v2.h"
#include "schemes/apk_signing_block_v3.h"
#include "tests/support/scheme_outcome.h"

namespace Quill {
namespace {

using Base = ApkSignatureBlockBase;
using Chain = std::vector<ProofOfRotation>;

const Regions kContent = {{'c', 'o', 'n', 't', 'e', 'n', 't'}};
const LogLine kBest = Info("Found the best signature algorithm ID: 0x201");
const LogLine kBadSignedData = Error("Can't parse signed data");
const LogLine kBadSigner = Error("Can't parse signer data");
const LogLine kNoSigner = Error("Can't check signer in APK V3 Signature format");

template <typename Scheme>
std::vector<LogLine> ParseLines(const ByteVector& signedData, const ByteVector& behind) {
  const ByteVector signer = Wire().LengthPrefixed(signedData).Bytes(behind);
  return RunScheme<Scheme>(Stage::kParse, Wire().LengthPrefixed(Sequence({signer}))).lines;
}

SchemeOutcome VerifyV2(const std::vector<SignerOptions>& signers,
                       const Regions& content = kContent) {
  return RunScheme<ApkSigningBlockV2>(Stage::kVerify, V2Value(signers, kContent), content);
}

SchemeOutcome VerifyV3(const std::vector<SignerOptions>& signers) {
  return RunScheme<ApkSigningBlockV3>(Stage::kVerify, V3Value(signers, kContent), kContent);
}

ByteVector AlgorithmItem(uint32_t length, uint32_t valueLength, const ByteVector& value) {
  return Wire().U32(length).U32(0x0103).U32(valueLength).Bytes(value);
}

// An empty field is a length of 0; whole are 12 bytes of signed data and 8 behind them.
TEST(ApkSigningBlockV2, AFieldThatDoesNotFitFailsWithItsOwnLine) {
  const std::pair<ByteVector, const char*> kInSignedData[] = {
      {ByteVector(3), "Can't parse digests"},
      {Wire().LengthPrefixed(AlgorithmItem(11, 2, {1, 2, 0})), "Can't parse digests"},
      {Wire().LengthPrefixed(AlgorithmItem(9, 2, {1})), "Can't parse digests"},
      {Wire().LengthPrefixed(AlgorithmItem(4, 0xfffffffc, {})), "Can't parse digests"},
      {ByteVector(4), "Can't iterate to the next field certificates"},
      {Wire().Fill(4).U32(1), "Can't parse certificates"},
      {ByteVector(8), "Can't iterate to the next field attributes"},
      {Wire().Fill(8).U32(1), "Can't parse attributes"},
  };
  for (const auto& [fields, line] : kInSignedData) {
    EXPECT_EQ(Lines(Error(line), kBadSignedData, kBadSigner),
              ParseLines<ApkSigningBlockV2>(fields, ByteVector(8)));
  }
  const std::pair<ByteVector, const char*> kBehindSignedData[] = {
      {{}, "Can't iterate to the next field signatures"},
      {Wire().U32(1), "Can't parse signatures"},
      {ByteVector(7), "Can't iterate to the next field public key"},
      {ByteVector(9), "Can't iterate to the next field public key"},
  };
  for (const auto& [fields, line] : kBehindSignedData) {
    EXPECT_EQ(Lines(Error(line), kBadSigner),
              ParseLines<ApkSigningBlockV2>(ByteVector(12), fields));
  }
  EXPECT_EQ(Lines(), ParseLines<ApkSigningBlockV2>(ByteVector(12), ByteVector(8)));
  const ByteVector overrun = Wire().U32(27).U32(24).U32(12).Fill(20);
  EXPECT_EQ(Lines(Error("Can't iterate to the next field signer")),
            RunScheme<ApkSigningBlockV2>(Stage::kParse, overrun).lines);
  EXPECT_EQ(Lines(Error("No signer in APK V2 Signature format")),
            RunScheme<ApkSigningBlockV2>(Stage::kParse, ByteVector(4)).lines);
}

// The same with 20 and 16 bytes; a number that is cut leaves nothing for the next field.
TEST(ApkSigningBlockV3, AFieldThatDoesNotFitFailsWithItsOwnLine) {
  const std::pair<size_t, const char*> kInSignedData[] = {
      {8, "Can't iterate to the next field minSDK"},
      {11, "Can't iterate to the next field maxSDK"},
      {15, "Can't iterate to the next field attributes"}};
  for (const auto& [size, line] : kInSignedData) {
    EXPECT_EQ(Lines(Error(line), kBadSignedData),
              ParseLines<ApkSigningBlockV3>(ByteVector(size), ByteVector(16)));
  }
  const std::pair<size_t, const char*> kBehindSignedData[] = {
      {0, "Can't iterate to the next field minSDK"},
      {4, "Can't iterate to the next field maxSDK"},
      {7, "Can't iterate to the next field signatures"}};
  for (const auto& [size, line] : kBehindSignedData) {
    EXPECT_EQ(Lines(Error(line)), ParseLines<ApkSigningBlockV3>(ByteVector(20), ByteVector(size)));
  }
  EXPECT_EQ(Lines(), ParseLines<ApkSigningBlockV3>(ByteVector(20), ByteVector(16)));
  EXPECT_EQ(Lines(Error("No signer in APK V3 Signature format")),
            RunScheme<ApkSigningBlockV3>(Stage::kParse, ByteVector(4)).lines);
}

TEST(SignerItems, NoTruncationParses) {
  SignerOptions options;
  ExpectNoTruncationParses<ApkSigningBlockV2>(V2Value({options}, kContent),
                                              Lines(kBadSignedData, kBadSigner));
  options.attributes = {LineageAttribute(Lineage({&TestKey(KeyType::kP256)}))};
  ExpectNoTruncationParses<ApkSigningBlockV3>(V3Value({options}, kContent), Lines(kBadSignedData));
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
  const LogLine badCertificates = Error("Can't verify certificates");
  const LogLine badAttributes = Error("Can't verify additional attributes");
  const LogLine stripped = Error(
      "APK V2 signature indicates APK is signed using APK Signature Scheme v3, but none was found. "
      "Signature stripped?");
  // What is bent, and the lines behind that of the best algorithm; none when it verifies.
  const std::pair<std::function<void(SignerOptions&)>, std::vector<LogLine>> kCases[] = {
      {[](auto& o) { o.publicKey = TestKey(KeyType::kRsa2048).publicKey; },
       Lines(Error("Can't initialize verifier object"))},
      {[&](auto& o) { o.publicKey = other.publicKey; }, Lines(Error("Can't verify signature"))},
      {[](auto& o) { o.certificates.emplace(); },
       Lines(Error("APK doesn't have certificates or public key of signer is empty\n"),
             badCertificates)},
      {[](auto& o) { o.certificates = {{{1}}}; },
       Lines(Error("APK V2 has malformed certificate\n"), Error("Can't parse X509 certificate\n"),
             badCertificates)},
      {[&](auto& o) { o.certificates->insert(o.certificates->begin(), other.certificate); },
       Lines(Error("Public keys of certificate and signer are mismatched\n"), badCertificates)},
      {[&](auto& o) { o.certificates->push_back(other.certificate); }, {}},
      {[](auto& o) { o.attributes.emplace_back(Wire().U32(0xbeeff00d).U32(2)); },
       Lines(stripped, badAttributes)},
      {[](auto& o) { o.attributes.emplace_back(Wire().U32(0xbeeff00d).U32(3)); }, {}},
      {[](auto& o) {
         o.attributes = {Wire().U16(0xf00d)}, o.behindAttributes = Wire().U16(0xbeef);
       },
       Lines(Error("Additional attributes is small: 2"), badAttributes)},
      {[](auto& o) { std::reverse(o.digestAlgorithms->begin(), o.digestAlgorithms->end()); },
       Lines(Error("Can't compare order signatures and digests"))},
  };
  for (auto [bend, lines] : kCases) {
    SignerOptions options;
    options.signatureAlgorithms = options.digestAlgorithms = {{0x0201, 0x0421}};
    options.certificates = {{options.key->certificate}};
    options.attributes = {Wire().U32(1)};
    bend(options);
    const auto outcome = VerifyV2({options});
    EXPECT_EQ(lines.empty(), outcome.isVerified);
    lines.insert(lines.begin(), kBest);
    EXPECT_EQ(lines, outcome.lines);
  }
  SignerOptions unknown;
  unknown.signatureAlgorithms = {{0x0421}};
  EXPECT_EQ(Lines(Error("Can't find supporting signing algorithm")), VerifyV2({unknown}).lines);
}

TEST(ApkSigningBlockV2, ContentMustBeWhatWasSigned) {
  EXPECT_EQ(Lines(kBest, Error("Can't verify digests of APK")), VerifyV2({{}}, {{'C'}}).lines);
}

TEST(ApkSigningBlockV2, EverySignerIsVerifiedAndYieldsItsKeyInOrder) {
  SignerOptions rsa, p384, bad;
  rsa.key = &TestKey(KeyType::kRsa2048);
  p384.key = &TestKey(KeyType::kP384);
  bad.publicKey = p384.key->publicKey;
  const auto good = VerifyV2({p384, rsa});
  EXPECT_TRUE(good.isVerified);
  EXPECT_EQ((std::vector<size_t>{95, 256}), good.KeyLengths());
  EXPECT_FALSE(VerifyV2({rsa, bad, p384}).isVerified);
}

TEST(ApkSigningBlockV3, ExactlyOneSignerCoversThePlatform) {
  const auto none = Lines(Error("Not found any signers"), kNoSigner);
  const auto noSdk = Lines(Error("Can't read property of the current version SDK"),
                           Error("Can't get version of the current SDK version"), kNoSigner);
  const struct {
    const char* sdk;
    std::vector<std::pair<uint32_t, uint32_t>> ranges;
    std::vector<LogLine> lines;
  } kCases[] = {
      {"30", {{24, 29}, {30, 30}, {31, 50}}, Lines(kBest)},
      {"30", {{31, 40}, {24, 29}}, none},
      {"30", {{24, 30}, {30, 40}}, Lines(Error("Don't support multiple signers: 2"), kNoSigner)},
      {"-1", {{0xffffffff, 0xffffffff}}, Lines(kBest)},
      {"", {{24, 40}}, noSdk},
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
    EXPECT_EQ(c.lines == Lines(kBest), outcome.isVerified);
    EXPECT_EQ(c.lines, outcome.lines);
  }
}

TEST(ApkSigningBlockV3, ASignerThatIsWrongInOnePlaceIsRefusedThere) {
  const std::pair<std::function<void(SignerOptions&)>, std::vector<LogLine>> kCases[] = {
      {[](auto& o) { o.minSdk = 50, o.maxSdk = 60, o.signedMaxSdk = 61; },
       Lines(Error("Not matched minSDK and maxSDK beetween signer and signed datasigner minSDK 50 "
                   "!= signed data minSDK 50 orsigner maxSDK 60 != signed data maxSDK 61"),
             kNoSigner)},
      {[](auto& o) { o.signatureAlgorithms.emplace(); },
       Lines(Error("No signatures found for APK V3"))},
      {[](auto& o) { o.attributes = {LineageAttribute(Lineage({&TestKey(KeyType::kP384)}))}; },
       Lines(kBest,
             Error("Terminal certificate in Proof-of-rotation record does not match             "
                   "APK signing certificate"),
             Error("Can't verify proof of rotation data"))},
      {[](auto& o) { o.digestAlgorithms.emplace(2, 0x0201); },
       Lines(kBest, Error("Can't compare order signatures and digests"))},
      {[](auto& o) { o.attributes = {Wire().U32(0xbeeff00d).U32(2)}; }, Lines(kBest)},
  };
  for (const auto& [bend, lines] : kCases) {
    SignerOptions options;
    bend(options);
    const auto outcome = VerifyV3({options});
    EXPECT_EQ(lines == Lines(kBest), outcome.isVerified);
    EXPECT_EQ(lines, outcome.lines);
  }
  SignerOptions otherMinimum;
  otherMinimum.signedMinSdk = 28;
  EXPECT_FALSE(VerifyV3({otherMinimum}).isVerified);
}

TEST(ApkSigningBlockV3, KeysOfTheLineageComeBeforeTheSigners) {
  SignerOptions options;
  options.key = &TestKey(KeyType::kP384);
  options.attributes = {LineageAttribute(
      Lineage({&TestKey(KeyType::kRsa2048), &TestKey(KeyType::kP256), options.key}))};
  const auto outcome = VerifyV3({options});
  EXPECT_TRUE(outcome.isVerified);
  EXPECT_EQ((std::vector<size_t>{256, 63, 95}), outcome.KeyLengths());
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
  const ByteVector value = Value(good);
  Chain chain;
  for (size_t length = 0; length < value.size(); ++length) {
    ByteVector cut(value.data(), value.data() + length);
    EXPECT_EQ(length == 8, ApkSigningBlockV3::ParseProofOfRotation(cut, chain)) << length;
    if (length < 12) continue;
    Put(cut, 4, Wire().U32(length - 12));  // the level is cut too, and not just its value
    EXPECT_FALSE(ApkSigningBlockV3::ParseProofOfRotation(cut, chain)) << length;
  }
}

TEST(ProofOfRotation, ASecondAttributeIsRefusedOnceThereAreLevels) {
  const Attribute empty = {0x3ba06f8c, ByteVector(8)};
  const Attribute oneLevel = {0x3ba06f8c, Value(Level(ByteVector(8), ByteVector(12)))};
  const std::pair<std::vector<Attribute>, std::vector<LogLine>> kCases[] = {
      {{{1, {}}, empty, empty, oneLevel}, {}},
      {{oneLevel, {1, {}}, empty}, Lines(Error("There can't be multiple proof of rotation data"))},
      {{{0x3ba06f8c, ByteVector(7)}}, Lines(Error("Can't parse proof of rotation data"))},
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
    const auto lines = log.Take();
    EXPECT_EQ(c.line, lines.empty() ? "" : lines.back().text);
  }
}

}  // namespace
}  // namespace Quill
