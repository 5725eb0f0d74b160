// SPDX-License-Identifier: Apache-2.0

#include "schemes/apk_signing_block_v2.h"

#include <utility>

#include "findings/acceptance.h"
#include "findings/refusal.h"
#include "schemes/signer_fields.h"
#include "util/log.h"

namespace Quill {
namespace {

constexpr uint32_t kStrippingProtectionId = 0xbeeff00d;

}  // namespace

bool ApkSigningBlockV2::Parse() {
  std::vector<SignerV2> signers;
  const bool parsed = ParseSigners(PairValue(), [&signers](ByteCursor fields, bool isWhole) {
    SignerV2 signer;
    if (!ParseSigner(fields, isWhole, signer)) {
      QUILL_LOGE("Can't parse signer data");
      return false;
    }
    signers.push_back(std::move(signer));
    return true;
  });
  if (!parsed) return false;
  if (signers.empty()) {
    QUILL_LOGE("No signer in APK V2 Signature format");
    return Refuse(Reason::kNoSigner);
  }
  signers_ = std::move(signers);
  return true;
}

bool ApkSigningBlockV2::ParseSigner(const LengthValueItem* item, SignerV2& signer) {
  return ParseSigner(item == nullptr ? ByteCursor() : ItemBody(item), item != nullptr, signer);
}

bool ApkSigningBlockV2::ParseSigner(ByteCursor fields, bool isWhole, SignerV2& signer) {
  signer.signedData.data = TakeSignedData(fields);
  if (!ParseSignedData(signer.signedData)) {
    QUILL_LOGE("Can't parse signed data");
    return false;
  }
  return TakeSignaturesAndPublicKey(fields, isWhole, signer.signatures, signer.publicKey);
}

bool ApkSigningBlockV2::ParseSignedData(SignedDataV2& signedData) {
  ByteCursor fields(signedData.data);
  return TakeDigestsAndCertificates(fields, signedData.digests, signedData.certificates) &&
         TakeAttributes(fields, signedData.attributes);
}

bool ApkSigningBlockV2::VerifyAttributes(const std::vector<Attribute>& attributes) {
  for (const Attribute& attribute : attributes) {
    if (attribute.id != kStrippingProtectionId) continue;
    uint32_t scheme;
    if (!ByteCursor(attribute.value).TakeU32(scheme)) {
      QUILL_LOGE("Additional attributes is small: %zu", attribute.value.size());
      return Refuse(Reason::kMalformed, "attribute 0xbeeff00d");
    }
    if (scheme == 3) Warn(Warning::kStrippedSchemeNamed, 0);
    // Deliberate: compared with 2, although the message names 3.
    if (scheme == 2) {
      QUILL_LOGE(
          "APK V2 signature indicates APK is signed using APK Signature Scheme v3, but none was found. Signature stripped?");
      return Refuse(Reason::kStripped);
    }
  }
  return true;
}

bool ApkSigningBlockV2::Verify() {
  if (signers_.size() > 1) Warn(Warning::kFurtherSigners, signers_.size() - 1);
  for (size_t i = 0; i < signers_.size(); ++i) {
    LookAtSigner(i);
    if (!VerifySigner(signers_[i])) return false;
  }
  return true;
}

bool ApkSigningBlockV2::VerifySigner(const SignerV2& signer) {
  const SignedDataV2& signedData = signer.signedData;
  VerifiedSignature verified;
  if (!VerifySignature(signer.signatures, signer.publicKey, signedData.data, verified) ||
      !VerifySignedFields(signedData.certificates, signer.publicKey, signedData.attributes) ||
      !VerifyContent(signer.signatures, signedData.digests, verified.hash) ||
      !StorePublicKey(*verified.verifier)) {
    return false;
  }
  const auto digest = FindBestSupported(signedData.digests);
  SignerEvidence evidence = {signedData.certificates.front(), signer.publicKey};
  evidence.algorithmId = digest->algorithmId;
  evidence.contentDigest = &digest->value;
  AcceptSigner(evidence);
  return true;
}

}  // namespace Quill
