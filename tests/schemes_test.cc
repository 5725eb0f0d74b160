// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

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
  for (const Row& row : ReadTable("rotation_attributes.txt")) {
    ApkSigningBlockV3::SignedDataV3 signedData;
    for (const std::string& field : Split(row.fields[1], " & ")) {
      const ByteVector bytes = Bytes(field, KnownBytes());
      Attribute attribute = {0, {bytes.begin() + 4, bytes.end()}};
      std::memcpy(&attribute.id, bytes.data(), 4);
      signedData.attributes.push_back(attribute);
    }
    LogCapture log;
    std::vector<ByteVector> keys;
    const bool isGood = ApkSigningBlockV3::ParseAdditionalAttributes(signedData) &&
                        ApkSigningBlockV3::VerifyProofRotation(signedData.proofOfRotation,
                                                               TestKey("p384-0").certificate, keys);
    EXPECT_EQ(row.fields[0], (isGood ? "good" : "refused") + Sizes(keys)) << row.text;
    EXPECT_EQ(row.log, log.Take()) << row.text;
  }
}

}  // namespace
}  // namespace Quill
