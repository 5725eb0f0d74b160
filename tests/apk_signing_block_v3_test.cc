#include "schemes/apk_signing_block_v3.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "tests/support/scheme_outcome.h"

namespace Quill {
namespace {

const Regions kContent = {{'c', 'o', 'n', 't', 'e', 'n', 't'}};

// A signer whose every field is empty; what follows the signed data are the SDK range, the
// signatures and the key.
const ByteVector kSignedData(20);
const ByteVector kBehind(16);

ByteVector Signer(const ByteVector& signedData, const ByteVector& behind = kBehind) {
  return Wire().LengthPrefixed(signedData).Bytes(behind);
}

SchemeOutcome Parse(const ByteVector& signer) {
  return RunScheme<ApkSigningBlockV3>(Stage::kParse, Wire().LengthPrefixed(Sequence({signer})));
}

SchemeOutcome Verify(const std::vector<SignerOptions>& signers) {
  return RunScheme<ApkSigningBlockV3>(Stage::kVerify, V3Value(signers, kContent), kContent);
}

TEST(ApkSigningBlockV3, AnSdkNumberThatIsCutEndsAtTheNextField) {
  const std::pair<ByteVector, const char*> kInSignedData[] = {
      {ByteVector(8), "Can't iterate to the next field minSDK"},
      {ByteVector(11), "Can't iterate to the next field maxSDK"},
      {ByteVector(12), "Can't iterate to the next field maxSDK"},
      {ByteVector(15), "Can't iterate to the next field attributes"},
      {ByteVector(16), "Can't iterate to the next field attributes"},
  };
  const std::pair<ByteVector, const char*> kBehindSignedData[] = {
      {{}, "Can't iterate to the next field minSDK"},
      {ByteVector(3), "Can't iterate to the next field maxSDK"},
      {ByteVector(4), "Can't iterate to the next field maxSDK"},
      {ByteVector(7), "Can't iterate to the next field signatures"},
      {ByteVector(8), "Can't iterate to the next field signatures"},
  };
  for (const auto& [fields, line] : kInSignedData) {
    EXPECT_EQ(Lines(Error(line), Error("Can't parse signed data")), Parse(Signer(fields)).lines);
  }
  for (const auto& [fields, line] : kBehindSignedData) {
    EXPECT_EQ(Lines(Error(line)), Parse(Signer(kSignedData, fields)).lines);
  }
  EXPECT_EQ(Lines(Error("Can't iterate to the next field minSDK")),
            Parse(Wire().U32(99).Bytes(kSignedData).Bytes(kBehind)).lines)
      << "signed data past the signer, its own fields whole";
  EXPECT_TRUE(Parse(Signer(kSignedData)).isParsed);
}

TEST(ApkSigningBlockV3, SignersFillTheirSequence) {
  const ByteVector good = Sequence({Signer(kSignedData)});
  const std::pair<ByteVector, const char*> kCases[] = {
      {Wire().U32(0), "No signer in APK V3 Signature format"},
      {Wire().U32(good.size() - 1).Bytes(good), "Can't iterate to the next field signer"},
      {Wire().U32(good.size() + 1).Bytes(good), "Can't parse signed data"},
  };
  for (const auto& [value, line] : kCases) {
    const auto outcome = RunScheme<ApkSigningBlockV3>(Stage::kParse, value);
    EXPECT_FALSE(outcome.isParsed);
    EXPECT_EQ(Lines(Error(line)), outcome.lines);
  }
}

TEST(ApkSigningBlockV3, NoTruncationParses) {
  SignerOptions options;
  options.attributes = {LineageAttribute(Lineage({&TestKey(KeyType::kP256)}))};
  ExpectNoTruncationParses<ApkSigningBlockV3>(V3Value({options}, kContent),
                                              Lines(Error("Can't parse signed data")));
}

TEST(ApkSigningBlockV3, ExactlyOneSignerCoversThePlatform) {
  using Ranges = std::vector<std::pair<uint32_t, uint32_t>>;
  const auto none =
      Lines(Error("Not found any signers"), Error("Can't check signer in APK V3 Signature format"));
  const auto two = Lines(Error("Don't support multiple signers: 2"),
                         Error("Can't check signer in APK V3 Signature format"));
  const auto noSdk = Lines(Error("Can't read property of the current version SDK"),
                           Error("Can't get version of the current SDK version"),
                           Error("Can't check signer in APK V3 Signature format"));
  const struct {
    const char* sdk;
    Ranges ranges;
    std::vector<LogLine> lines;  // empty: verified
  } kCases[] = {
      {"30", {{24, 2147483647}}, {}},
      {"30", {{30, 30}}, {}},
      {"30", {{0, 0xffffffff}}, {}},
      {"30", {{24, 29}, {30, 40}, {41, 50}}, {}},
      {"30", {{31, 40}}, none},
      {"30", {{24, 29}}, none},
      {"30", {{40, 24}}, none},
      {"30", {{24, 30}, {30, 40}}, two},
      {"-1", {{0xffffffff, 0xffffffff}}, {}},
      {"", {{24, 40}}, noSdk},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(&c - kCases);
    std::vector<SignerOptions> signers;
    for (const auto& [minSdk, maxSdk] : c.ranges) {
      SignerOptions& signer = signers.emplace_back();
      signer.minSdk = minSdk;
      signer.maxSdk = maxSdk;
      if (maxSdk < 30) signer.publicKey.emplace();  // nobody looks at it
    }
    setenv("QUILLON_SDK", c.sdk, /*overwrite=*/1);
    const auto outcome = Verify(signers);
    unsetenv("QUILLON_SDK");
    EXPECT_EQ(c.lines.empty(), outcome.isVerified);
    EXPECT_EQ(
        c.lines.empty() ? Lines(Info("Found the best signature algorithm ID: 0x201")) : c.lines,
        outcome.lines);
  }
}

TEST(ApkSigningBlockV3, ASignerThatIsWrongInOnePlaceIsRefusedThere) {
  const LogLine best = Info("Found the best signature algorithm ID: 0x201");
  const LogLine badSigner = Error("Can't check signer in APK V3 Signature format");
  const struct {
    const char* name;
    std::function<void(SignerOptions&)> bend;
    std::vector<LogLine> lines;
  } kCases[] = {
      {"signed minimum", [](auto& o) { o.signedMinSdk = 28; },
       Lines(Error("Not matched minSDK and maxSDK beetween signer and signed datasigner minSDK 24 "
                   "!= signed data minSDK 28 orsigner maxSDK 2147483647 != signed data maxSDK "
                   "2147483647"),
             badSigner)},
      {"signed maximum, outside the platform",
       [](auto& o) { o.minSdk = 50, o.maxSdk = 60, o.signedMaxSdk = 61; },
       Lines(Error("Not matched minSDK and maxSDK beetween signer and signed datasigner minSDK 50 "
                   "!= signed data minSDK 50 orsigner maxSDK 60 != signed data maxSDK 61"),
             badSigner)},
      {"no signatures", [](auto& o) { o.signatureAlgorithms.emplace(); },
       Lines(Error("No signatures found for APK V3"))},
      {"lineage of another key",
       [](auto& o) { o.attributes = {LineageAttribute(Lineage({&TestKey(KeyType::kP384)}))}; },
       Lines(best,
             Error("Terminal certificate in Proof-of-rotation record does not match             "
                   "APK signing certificate"),
             Error("Can't verify proof of rotation data"))},
      {"a digest more than signatures",
       [](auto& o) {
         o.digestAlgorithms = {{0x0201, 0x0202}};
       },
       Lines(best, Error("Can't compare order signatures and digests"))},
      {"stripping protection, which v2 alone looks at",
       [](auto& o) { o.attributes = {Wire().U32(0xbeeff00d).U32(2)}; }, Lines(best)},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    SignerOptions options;
    c.bend(options);
    const auto outcome = Verify({options});
    EXPECT_EQ(c.lines == Lines(best), outcome.isVerified);
    EXPECT_EQ(c.lines, outcome.lines);
  }
}

TEST(ApkSigningBlockV3, KeysOfTheLineageComeBeforeTheSigners) {
  SignerOptions options;
  options.key = &TestKey(KeyType::kP384);
  options.attributes = {LineageAttribute(
      Lineage({&TestKey(KeyType::kRsa2048), &TestKey(KeyType::kP256), options.key}))};
  const auto outcome = Verify({options});
  EXPECT_TRUE(outcome.isVerified);
  ASSERT_EQ(3u, outcome.publicKeys.size());
  EXPECT_EQ(256u, outcome.publicKeys[0].size());
  EXPECT_EQ(63u, outcome.publicKeys[1].size());
  EXPECT_EQ(95u, outcome.publicKeys[2].size());
}

}  // namespace
}  // namespace Quill
