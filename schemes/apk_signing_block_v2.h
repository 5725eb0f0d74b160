// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "schemes/apk_signature_block_base.h"

namespace Quill {

// APK Signature Scheme v2. Verify verifies every signer of the block and finds one public key for
// each, in wire order.
class ApkSigningBlockV2 : public ApkSignatureBlockBase {
 public:
  struct SignedDataV2 {
    // A private copy of what the signature covers. The other members are parsed from it.
    std::vector<uint8_t> data;
    std::vector<Digest> digests;
    std::vector<std::vector<uint8_t>> certificates;  // DER
    std::vector<Attribute> attributes;
  };
  struct SignerV2 {
    SignedDataV2 signedData;
    std::vector<Signature> signatures;
    std::vector<uint8_t> publicKey;  // DER SubjectPublicKeyInfo
  };

  using ApkSignatureBlockBase::ApkSignatureBlockBase;

  [[nodiscard]] bool VerifyAttributes(const std::vector<Attribute>& attributes) override;
  [[nodiscard]] bool Parse() override;
  [[nodiscard]] bool Verify() override;

  // Parses the signer at a pointer. Null fails. False logs one error line for each level that
  // failed.
  [[nodiscard]] static bool ParseSigner(const LengthValueItem* item, SignerV2& signer);
  // Parses `data` into the other members. False logs one error line.
  [[nodiscard]] static bool ParseSignedData(SignedDataV2& signedData);

 private:
  // As above, from the bytes of the signer that the pair holds.
  [[nodiscard]] static bool ParseSigner(ByteCursor fields, bool isWhole, SignerV2& signer);
  [[nodiscard]] bool VerifySigner(const SignerV2& signer);

  std::vector<SignerV2> signers_;
};

}  // namespace Quill
