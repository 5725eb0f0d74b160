// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>

#include "schemes/apk_signing_block_v2.h"
#include "schemes/apk_signing_block_v3.h"
#include "tests/support/scheme_outcome.h"
#include "tests/support/table.h"

namespace Quill {
namespace {

using Base = ApkSignatureBlockBase;

const Regions kContent = {{'c', 'o', 'n', 't', 'e', 'n', 't'}};

SchemeOutcome OutcomeOf(const std::string& scheme, Stage last, const ByteVector& value) {
  const auto run = scheme == "v2" ? RunScheme<ApkSigningBlockV2> : RunScheme<ApkSigningBlockV3>;
  SchemeOutcome outcome = run(last, value, kContent);
  const bool isGood = last == Stage::kParse ? outcome.isParsed : outcome.isVerified;
  EXPECT_NE(isGood, outcome.hasReason) << outcome.lines;
  return outcome;
}

std::string Sizes(const std::vector<ByteVector>& keys) {
  std::string text;
  for (const ByteVector& key : keys) text += " " + std::to_string(key.size());
  return text;
}

TEST(Signer, FailsAtTheFirstFieldThatDoesNotFit) {
  for (const Row& row : ReadTable("signer_bytes.txt")) {
    EXPECT_EQ(row.log, OutcomeOf(row.fields[0], Stage::kParse, Bytes(row.fields[1])).lines)
        << row.text;
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

// Returns the signer with the parts that a text such as "sdk=24,30; publicKey=" sets.
SignerOptions SignerWith(const std::string& parts) {
  static const SigningKey &own = TestKey("p256-0"), &other = TestKey("p256-1");
  static const std::map<std::string, ByteVector> kNames = {
      {"own.certificate", own.certificate},
      {"other.certificate", other.certificate},
      {"other.publicKey", other.publicKey},
      {"lineage", LineageAttribute(Lineage({&other, &own}))},
      {"otherLineage", LineageAttribute(Lineage({&own, &other}))}};
  SignerOptions signer;
  for (const std::string& part : Split(parts, "; ")) {
    const std::string name = part.substr(0, part.find('=')), value = part.substr(name.size() + 1);
    std::vector<ByteVector> items;
    std::vector<uint32_t> numbers;
    for (const std::string& item : Split(value, ",")) {
      items.push_back(Bytes(item, kNames));
      numbers.push_back(static_cast<uint32_t>(std::strtoul(item.c_str(), nullptr, 0)));
    }
    if (name == "key") {
      signer.key = &TestKey(value);
    } else if (name == "sdk") {
      signer.minSdk = numbers[0], signer.maxSdk = numbers[1], signer.signedMaxSdk = numbers.back();
    } else if (name == "signatures" || name == "digests") {
      (name == "digests" ? signer.digestAlgorithms : signer.signatureAlgorithms) = numbers;
    } else if (name == "certificates") {
      signer.certificates = items;
    } else if (name == "attributes") {
      signer.attributes = items;
    } else if (name == "publicKey") {
      signer.publicKey = Bytes(value, kNames);
    } else if (name == "contentDigest") {
      signer.contentDigest = Bytes(value);
    } else if (name == "behindAttributes") {
      signer.behindAttributes = Bytes(value);
    } else {
      ADD_FAILURE() << "no such part: " << part;
    }
  }
  return signer;
}

TEST(Signer, IsVerifiedWithAllItsParts) {
  for (const Row& row : ReadTable("signers.txt")) {
    std::vector<SignerOptions> signers;
    for (const std::string& parts : Split(row.fields[2], " & ")) {
      signers.push_back(SignerWith(parts));
    }
    const std::string sdk = row.fields.size() > 3 ? row.fields[3] : "30";
    setenv("QUILLON_SDK", sdk == "unset" ? "" : sdk.c_str(), /*overwrite=*/1);
    const std::string& scheme = row.fields[0];
    const auto outcome =
        OutcomeOf(scheme, Stage::kVerify, PairValue(scheme == "v3", signers, kContent));
    unsetenv("QUILLON_SDK");
    EXPECT_EQ(row.fields[1], outcome.isVerified ? "good" + Sizes(outcome.publicKeys) : "refused")
        << row.text;
    EXPECT_EQ(row.log, outcome.lines) << row.text;
  }
}

TEST(ProofOfRotation, EveryLinkIsSignedByTheKeyBefore) {
  ByteVector unknown = TestKey("p256-0").certificate;
  unknown.at(73) = 0x7f;  // the end of the object identifier of EC keys
  std::map<std::string, ByteVector> names = {{"unknown", unknown}, {"none", {1}}};
  const std::string kKeys[] = {"rsa2048-0", "p256-0", "p384-0"};
  for (const std::string& key : kKeys) names[key] = TestKey(key).certificate;
  for (const auto& [name, certificate] : std::map(names)) {
    const ByteVector signedPart = Wire().LengthPrefixed(certificate).U32(7);
    for (const std::string& key : kKeys) {
      const std::string link = std::string(key).append(">").append(name);
      names[link] = Sign(TestKey(key), TestKey(key).algorithmId, signedPart);
    }
  }
  for (const Row& row : ReadTable("rotation_attributes.txt")) {
    ApkSigningBlockV3::SignedDataV3 signedData;
    for (const std::string& field : Split(row.fields[1], " & ")) {
      const ByteVector bytes = Bytes(field, names);
      Attribute attribute = {0, {bytes.begin() + 4, bytes.end()}};
      std::memcpy(&attribute.id, bytes.data(), 4);
      signedData.attributes.push_back(attribute);
    }
    LogCapture log;
    std::vector<ByteVector> keys;
    const bool isGood =
        ApkSigningBlockV3::ParseAdditionalAttributes(signedData) &&
        ApkSigningBlockV3::VerifyProofRotation(signedData.proofOfRotation, names["p384-0"], keys);
    EXPECT_EQ(row.fields[0], (isGood ? "good" : "refused") + Sizes(keys)) << row.text;
    EXPECT_EQ(row.log, log.Take()) << row.text;
  }
}

}  // namespace
}  // namespace Quill
