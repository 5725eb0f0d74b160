#include "schemes/apk_signing_block_v2.h"

#include <gtest/gtest.h>

#include "tests/support/scheme_outcome.h"

namespace Quill {
namespace {

const Regions kContent = {{'c', 'o', 'n', 't', 'e', 'n', 't'}};

// A signer whose every field is empty; what follows the signed data are the signatures and the key.
const ByteVector kSignedData(12);
const ByteVector kBehind(8);
const ByteVector kPastTheEnd = Wire().U32(1);  // a length without its byte

ByteVector Signer(const ByteVector& signedData, const ByteVector& behind = kBehind) {
  return Wire().LengthPrefixed(signedData).Bytes(behind);
}

std::vector<LogLine> ParseLines(const ByteVector& signer) {
  return RunScheme<ApkSigningBlockV2>(Stage::kParse, Wire().LengthPrefixed(Sequence({signer})))
      .lines;
}

TEST(ApkSigningBlockV2, AFieldThatDoesNotFitFailsWithItsOwnLine) {
  const std::pair<ByteVector, const char*> kInSignedData[] = {
      {{}, "Can't parse digests"},
      {ByteVector(3), "Can't parse digests"},
      {kPastTheEnd, "Can't parse digests"},
      {ByteVector(4), "Can't iterate to the next field certificates"},
      {Wire().Fill(4).Bytes(kPastTheEnd), "Can't parse certificates"},
      {ByteVector(8), "Can't iterate to the next field attributes"},
      {Wire().Fill(8).Bytes(kPastTheEnd), "Can't parse attributes"},
  };
  const std::pair<ByteVector, const char*> kBehindSignedData[] = {
      {{}, "Can't iterate to the next field signatures"},
      {kPastTheEnd, "Can't parse signatures"},
      {ByteVector(4), "Can't iterate to the next field public key"},
      {ByteVector(7), "Can't iterate to the next field public key"},
      {Wire().Fill(4).Bytes(kPastTheEnd), "Can't iterate to the next field public key"},
      {Wire().Bytes(kBehind).U8(0), "Can't iterate to the next field public key"},
  };
  const LogLine inSignedData = Error("Can't parse signed data");
  const LogLine inSigner = Error("Can't parse signer data");
  for (const auto& [fields, line] : kInSignedData) {
    EXPECT_EQ(Lines(Error(line), inSignedData, inSigner), ParseLines(Signer(fields)));
  }
  for (const auto& [fields, line] : kBehindSignedData) {
    EXPECT_EQ(Lines(Error(line), inSigner), ParseLines(Signer(kSignedData, fields)));
  }
  EXPECT_EQ(Lines(Error("Can't parse digests"), inSignedData, inSigner), ParseLines({}))
      << "no room for the length of the signed data";
  EXPECT_EQ(Lines(Error("Can't iterate to the next field signatures"), inSigner),
            ParseLines(Wire().U32(99).Bytes(kSignedData).Bytes(kBehind)))
      << "signed data past the signer, its own fields whole";
  EXPECT_EQ(Lines(), ParseLines(Signer(kSignedData)));
  EXPECT_EQ(Lines(), ParseLines(Signer(Wire().Bytes(kSignedData).Fill(9))))
      << "bytes behind the attributes";
}

TEST(ApkSigningBlockV2, SignersFillTheirSequence) {
  const ByteVector good = Sequence({Signer(kSignedData)});
  const auto unreadable = Lines(Error("Can't parse signed data"), Error("Can't parse signer data"));
  const struct {
    const char* name;
    ByteVector value;
    bool isParsed;
    std::vector<LogLine> lines;
  } kCases[] = {
      {"bytes behind the sequence", Wire().LengthPrefixed(good).Fill(5), true, {}},
      {"none", Wire().U32(0), false, Lines(Error("No signer in APK V2 Signature format"))},
      {"no length", {}, false, unreadable},
      {"sequence past the value", Wire().U32(good.size() + 1).Bytes(good), false, unreadable},
      {"sequence ends inside a signer", Wire().U32(good.size() - 1).Bytes(good), false,
       Lines(Error("Can't iterate to the next field signer"))},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const auto outcome = RunScheme<ApkSigningBlockV2>(Stage::kParse, c.value);
    EXPECT_EQ(c.isParsed, outcome.isParsed);
    EXPECT_EQ(c.lines, outcome.lines);
  }
}

TEST(ApkSigningBlockV2, NoTruncationParses) {
  ExpectNoTruncationParses<ApkSigningBlockV2>(
      V2Value({{}}, kContent),
      Lines(Error("Can't parse signed data"), Error("Can't parse signer data")));
}

SchemeOutcome Verify(const std::vector<SignerOptions>& signers) {
  return RunScheme<ApkSigningBlockV2>(Stage::kVerify, V2Value(signers, kContent), kContent);
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
    EXPECT_TRUE(Verify({options}).isVerified) << algorithmId;
  }
}

TEST(ApkSigningBlockV2, ASignerThatIsWrongInOnePlaceIsRefusedThere) {
  const ByteVector kOtherKey = TestKey(KeyType::kP256, 1).publicKey;
  const ByteVector kOtherCertificate = TestKey(KeyType::kP256, 1).certificate;
  const ByteVector kCertificate = TestKey(KeyType::kP256).certificate;
  const LogLine best = Info("Found the best signature algorithm ID: 0x201");
  const LogLine stripped = Error(
      "APK V2 signature indicates APK is signed using APK Signature Scheme v3, but none was found. "
      "Signature stripped?");
  const LogLine badAttributes = Error("Can't verify additional attributes");
  const struct {
    const char* name;
    std::function<void(SignerOptions&)> bend;
    std::vector<LogLine> lines;  // none behind the best algorithm: verified
  } kCases[] = {
      {"no signatures", [](auto& o) { o.signatureAlgorithms.emplace(); },
       Lines(Error("Can't find supporting signing algorithm"))},
      {"unknown algorithm alone", [](auto& o) { o.signatureAlgorithms = {{0x0421}}; },
       Lines(Error("Can't find supporting signing algorithm"))},
      {"public key of another kind",
       [](auto& o) { o.publicKey = TestKey(KeyType::kRsa2048).publicKey; },
       Lines(best, Error("Can't initialize verifier object"))},
      {"another public key", [&](auto& o) { o.publicKey = kOtherKey; },
       Lines(best, Error("Can't verify signature"))},
      {"no certificates", [](auto& o) { o.certificates.emplace(); },
       Lines(best, Error("APK doesn't have certificates or public key of signer is empty\n"),
             Error("Can't verify certificates"))},
      {"malformed certificate",
       [](auto& o) {
         o.certificates = {{{1, 2, 3}}};
       },
       Lines(best, Error("APK V2 has malformed certificate\n"),
             Error("Can't parse X509 certificate\n"), Error("Can't verify certificates"))},
      {"another certificate before the signer's",
       [&](auto& o) {
         o.certificates = {{kOtherCertificate, kCertificate}};
       },
       Lines(best, Error("Public keys of certificate and signer are mismatched\n"),
             Error("Can't verify certificates"))},
      {"another certificate behind the signer's",
       [&](auto& o) {
         o.certificates = {{kCertificate, kOtherCertificate}};
       },
       Lines(best)},
      {"stripped",
       [](auto& o) {
         o.attributes = {Wire().U32(1), Wire().U32(0xbeeff00d).U32(2)};
       },
       Lines(best, stripped, badAttributes)},
      {"stripping protection with the value 3",
       [](auto& o) { o.attributes = {Wire().U32(0xbeeff00d).U32(3)}; }, Lines(best)},
      {"stripping protection whose value lies behind it",
       [](auto& o) {
         o.attributes = {Wire().U32(0xbeeff00d)};
         o.behindAttributes = Wire().U32(2);
       },
       Lines(best, stripped, badAttributes)},
      {"stripping protection shorter than its ID",
       [](auto& o) {
         o.attributes = {Wire().U16(0xf00d)};
         o.behindAttributes = Wire().U16(0xbeef);
       },
       Lines(best, Error("Additional attributes is small: 2"), badAttributes)},
      {"digests in another order",
       [](auto& o) {
         o.signatureAlgorithms = {{0x0201, 0x0421}};
         o.digestAlgorithms = {{0x0421, 0x0201}};
       },
       Lines(best, Error("Can't compare order signatures and digests"))},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    SignerOptions options;
    c.bend(options);
    const auto outcome = Verify({options});
    EXPECT_TRUE(outcome.isParsed);
    EXPECT_EQ(c.lines == Lines(best), outcome.isVerified);
    EXPECT_EQ(outcome.isVerified ? 1u : 0u, outcome.publicKeys.size());
    EXPECT_EQ(c.lines, outcome.lines);
  }
}

TEST(ApkSigningBlockV2, ContentMustBeWhatWasSigned) {
  const auto outcome =
      RunScheme<ApkSigningBlockV2>(Stage::kVerify, V2Value({{}}, kContent), {{'C'}});
  EXPECT_FALSE(outcome.isVerified);
  EXPECT_EQ(Lines(Info("Found the best signature algorithm ID: 0x201"),
                  Error("Can't verify digests of APK")),
            outcome.lines);
}

TEST(ApkSigningBlockV2, EverySignerIsVerifiedAndYieldsItsKeyInOrder) {
  SignerOptions first, second, bad;
  first.key = &TestKey(KeyType::kRsa2048);
  second.key = &TestKey(KeyType::kP384);
  bad.publicKey = TestKey(KeyType::kP384).publicKey;
  const struct {
    std::vector<SignerOptions> signers;
    bool isVerified;
    std::vector<size_t> keyLengths;  // RSA 2048: 256, P-384: 95
  } kCases[] = {
      {{first, second}, true, {256, 95}},
      {{second, first}, true, {95, 256}},
      {{first, bad, second}, false, {256}},
  };
  for (const auto& c : kCases) {
    const auto outcome = Verify(c.signers);
    EXPECT_EQ(c.isVerified, outcome.isVerified);
    std::vector<size_t> keyLengths;
    for (const ByteVector& key : outcome.publicKeys) keyLengths.push_back(key.size());
    EXPECT_EQ(c.keyLengths, keyLengths);
  }
}

}  // namespace
}  // namespace Quill
