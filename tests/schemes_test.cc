// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>

#include "schemes/apk_signing_block_v2.h"
#include "schemes/apk_signing_block_v3.h"
#include "tests/support/scheme_outcome.h"
#include "tests/support/table.h"

namespace Quill {
namespace {

using testing::EndsWith;
using Base = ApkSignatureBlockBase;
using Chain = std::vector<ProofOfRotation>;

const Regions kContent = {{'c', 'o', 'n', 't', 'e', 'n', 't'}};

SchemeOutcome OutcomeOf(const std::string& scheme, Stage last, const ByteVector& value) {
  return scheme == "v2" ? RunScheme<ApkSigningBlockV2>(last, value, kContent)
                        : RunScheme<ApkSigningBlockV3>(last, value, kContent);
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
  static const SigningKey &own = TestKey(KeyType::kP256), &other = TestKey(KeyType::kP256, 1);
  static const std::map<std::string, KeyType> kKeys = {{"RSA", KeyType::kRsa2048},
                                                       {"DSA", KeyType::kDsa1024},
                                                       {"P384", KeyType::kP384},
                                                       {"P521", KeyType::kP521}};
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
      signer.key = &TestKey(kKeys.at(value));
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
        OutcomeOf(scheme, Stage::kVerify, (scheme == "v2" ? V2Value : V3Value)(signers, kContent));
    unsetenv("QUILLON_SDK");
    std::string result;
    for (const ByteVector& key : outcome.publicKeys) {
      result += (result.empty() ? "" : " ") + std::to_string(key.size());
    }
    EXPECT_EQ(row.fields[1], outcome.isVerified ? result : "refused") << row.text;
    EXPECT_EQ(row.log, outcome.lines) << row.text;
  }
}

TEST(ProofOfRotation, LevelsFillTheOneRecordAndFieldsTheirLevel) {
  for (const Row& row : ReadTable("rotation_attributes.txt")) {
    ApkSigningBlockV3::SignedDataV3 signedData;
    for (const std::string& field : row.fields) {
      const ByteVector bytes = Bytes(field);
      Attribute attribute = {0, {bytes.begin() + 4, bytes.end()}};
      std::memcpy(&attribute.id, bytes.data(), 4);
      signedData.attributes.push_back(attribute);
    }
    LogCapture log;
    EXPECT_EQ(row.log.empty(), ApkSigningBlockV3::ParseAdditionalAttributes(signedData));
    EXPECT_EQ(row.log, log.Take()) << row.text;
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
