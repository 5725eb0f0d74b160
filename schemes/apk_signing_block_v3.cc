// SPDX-License-Identifier: Apache-2.0

#include "schemes/apk_signing_block_v3.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <quillon/system.h>

#include "findings/acceptance.h"
#include "findings/refusal.h"
#include "schemes/signer_fields.h"
#include "util/log.h"
#include "util/text.h"

namespace Quill {
namespace {

constexpr uint32_t kProofOfRotationId = 0x3ba06f8c;

// Takes a number. One that is cut short counts as 0 and leaves nothing for the next field.
uint32_t TakeNumber(ByteCursor& fields) {
  uint32_t number = 0;
  if (!fields.TakeU32(number)) fields = {};
  return number;
}

bool TakeSdkRange(ByteCursor& fields, uint32_t& minSdk, uint32_t& maxSdk) {
  if (fields.Remaining() == 0) {
    QUILL_LOGE("Can't iterate to the next field minSDK");
    return Refuse(Reason::kMalformed, "minSdk");
  }
  minSdk = TakeNumber(fields);
  if (fields.Remaining() == 0) {
    QUILL_LOGE("Can't iterate to the next field maxSDK");
    return Refuse(Reason::kMalformed, "maxSdk");
  }
  maxSdk = TakeNumber(fields);
  return true;
}

// Lists the SDK ranges of the first signers, such as "24-27, 28 and later".
std::string RangesOf(const std::vector<ApkSigningBlockV3::SignerV3>& signers) {
  constexpr size_t kMost = 8;
  std::string ranges;
  for (size_t i = 0; i < std::min(signers.size(), kMost); ++i) {
    const auto& signer = signers[i];
    if (!ranges.empty()) ranges += ", ";
    ranges += SdkRangeText(signer.minSdk, signer.maxSdk);
  }
  return ranges;
}

// Says which number of a signer's SDK range is not the one that it signed. The bytes are those in
// the package.
bool RefuseSdkRange(const ApkSigningBlockV3::SignerV3& signer) {
  const auto& own = signer.signedData;
  const bool isMin = signer.minSdk != own.minSdk;
  const uint32_t expected = isMin ? own.minSdk : own.maxSdk;
  const uint32_t found = isMin ? signer.minSdk : signer.maxSdk;
  std::vector<uint8_t> expectedBytes(sizeof expected);
  std::vector<uint8_t> foundBytes(sizeof found);
  std::memcpy(expectedBytes.data(), &expected, sizeof expected);
  std::memcpy(foundBytes.data(), &found, sizeof found);
  return Refuse(Reason::kSdkRangesDiffer,
                {found, isMin ? "minSdk" : "maxSdk", &expectedBytes, &foundBytes, expected});
}

}  // namespace

bool ApkSigningBlockV3::Parse() {
  std::vector<SignerV3> signers;
  const bool parsed = ParseSigners(PairValue(), [&signers](ByteCursor fields, bool isWhole) {
    SignerV3 signer;
    // Deliberate: unlike v2, no line is added to those of ParseSigner.
    if (!ParseSigner(fields, isWhole, signer)) return false;
    signers.push_back(std::move(signer));
    return true;
  });
  if (!parsed) return false;
  if (signers.empty()) {
    QUILL_LOGE("No signer in APK V3 Signature format");
    return Refuse(Reason::kNoSigner);
  }
  signers_ = std::move(signers);
  return true;
}

bool ApkSigningBlockV3::ParseSigner(const LengthValueItem* item, SignerV3& signer) {
  return ParseSigner(item == nullptr ? ByteCursor() : ItemBody(item), item != nullptr, signer);
}

bool ApkSigningBlockV3::ParseSigner(ByteCursor fields, bool isWhole, SignerV3& signer) {
  signer.signedData.data = TakeSignedData(fields);
  if (!ParseSignedData(signer.signedData)) {
    QUILL_LOGE("Can't parse signed data");
    return false;
  }
  return TakeSdkRange(fields, signer.minSdk, signer.maxSdk) &&
         TakeSignaturesAndPublicKey(fields, isWhole, signer.signatures, signer.publicKey);
}

bool ApkSigningBlockV3::ParseSignedData(SignedDataV3& signedData) {
  ByteCursor fields(signedData.data);
  if (!TakeDigestsAndCertificates(fields, signedData.digests, signedData.certificates) ||
      !TakeSdkRange(fields, signedData.minSdk, signedData.maxSdk) ||
      !TakeAttributes(fields, signedData.attributes)) {
    return false;
  }
  if (!ParseAdditionalAttributes(signedData)) {
    QUILL_LOGE("Can't parse attributes proof of rotation data");
    return false;
  }
  return true;
}

bool ApkSigningBlockV3::ParseAdditionalAttributes(SignedDataV3& signedData) {
  for (const Attribute& attribute : signedData.attributes) {
    if (attribute.id != kProofOfRotationId) continue;
    // Deliberate: a second record is rejected only when the first held a level.
    if (!signedData.proofOfRotation.empty()) {
      QUILL_LOGE("There can't be multiple proof of rotation data");
      return Refuse(Reason::kLineageMalformed);
    }
    if (!ParseProofOfRotation(attribute.value, signedData.proofOfRotation)) {
      QUILL_LOGE("Can't parse proof of rotation data");
      return Refuse(Reason::kLineageMalformed);
    }
  }
  return true;
}

bool ApkSigningBlockV3::ParseProofOfRotation(const std::vector<uint8_t>& value,
                                             std::vector<ProofOfRotation>& chain) {
  return Quill::ParseProofOfRotation(value, chain);
}

bool ApkSigningBlockV3::ParseProofOfRotationLevel(const LengthValueItem* level,
                                                  ProofOfRotation& out) {
  return level != nullptr && Quill::ParseProofOfRotationLevel(ItemBody(level), out);
}

bool ApkSigningBlockV3::ParseProofOfRotationSignedData(const std::vector<uint8_t>& data,
                                                       RotationParsedCertificate& out) {
  return Quill::ParseProofOfRotationSignedData(data, out);
}

bool ApkSigningBlockV3::VerifyProofRotation(const std::vector<ProofOfRotation>& chain,
                                            const std::vector<uint8_t>& signingCertificate,
                                            std::vector<std::vector<uint8_t>>& publicKeys) {
  return Quill::VerifyProofRotation(chain, signingCertificate, publicKeys);
}

bool ApkSigningBlockV3::FindSigner(SignerV3& out) {
  int sdk;
  if (!GetVersionSDK(sdk)) {
    QUILL_LOGE("Can't get version of the current SDK version");
    return Refuse(Reason::kSdkUnknown);
  }
  const auto version = static_cast<uint32_t>(sdk);
  size_t matchCount = 0;
  for (const SignerV3& signer : signers_) NoteSdkRange(signer.minSdk, signer.maxSdk);
  for (size_t i = 0; i < signers_.size(); ++i) {
    const SignerV3& signer = signers_[i];
    const SignedDataV3& signedData = signer.signedData;
    if (signer.minSdk != signedData.minSdk || signer.maxSdk != signedData.maxSdk) {
      LookAtSigner(i);
      // Deliberate: log readers know this text with its slips.
      QUILL_LOGE(
          "Not matched minSDK and maxSDK beetween signer and signed datasigner minSDK %u != signed data minSDK %u orsigner maxSDK %u != signed data maxSDK %u",
          signer.minSdk, signedData.minSdk, signer.maxSdk, signedData.maxSdk);
      return RefuseSdkRange(signer);
    }
    if (version < signer.minSdk || version > signer.maxSdk) continue;
    LookAtSigner(i);
    if (matchCount++ == 0) out = signer;
  }
  if (matchCount == 0) {
    QUILL_LOGE("Not found any signers");
    return Refuse(Reason::kNoSignerForSdk, {version, RangesOf(signers_), {}, {}});
  }
  if (matchCount > 1) {
    QUILL_LOGE("Don't support multiple signers: %zu", matchCount);
    return Refuse(Reason::kSeveralSigners, matchCount);
  }
  return true;
}

bool ApkSigningBlockV3::VerifyAttributes(const std::vector<Attribute>& /*attributes*/) {
  return true;
}

bool ApkSigningBlockV3::Verify() {
  SignerV3 signer;
  if (!FindSigner(signer)) {
    QUILL_LOGE("Can't check signer in APK V3 Signature format");
    return false;
  }
  if (signer.signatures.empty()) {
    QUILL_LOGE("No signatures found for APK V3");
    return Refuse(Reason::kMalformed, "signatures");
  }
  const SignedDataV3& signedData = signer.signedData;
  VerifiedSignature verified;
  if (!VerifySignature(signer.signatures, signer.publicKey, signedData.data, verified) ||
      !VerifySignedFields(signedData.certificates, signer.publicKey, signedData.attributes)) {
    return false;
  }
  if (!VerifyProofRotation(signedData.proofOfRotation, signedData.certificates.front(),
                           PublicKeys())) {
    QUILL_LOGE("Can't verify proof of rotation data");
    return false;
  }
  if (!VerifyContent(signer.signatures, signedData.digests, verified.hash) ||
      !StorePublicKey(*verified.verifier)) {
    return false;
  }
  const auto digest = FindBestSupported(signedData.digests);
  AcceptSigner({signedData.certificates.front(), signer.publicKey, signer.minSdk, signer.maxSdk,
                digest->algorithmId, &digest->value});
  return true;
}

}  // namespace Quill
