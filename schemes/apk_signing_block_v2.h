// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "schemes/apk_signature_block_base.h"

namespace Quill {

// APK Signature Scheme v2: every signer of the block is verified and yields one public key, in wire
// order.
class ApkSigningBlockV2 : public ApkSignatureBlockBase {
 public:
  struct SignedDataV2 {
    std::vector<uint8_t>
        data;  // a private copy of what the signature covers; the rest is read from it
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

  bool VerifyAttributes(const std::vector<Attribute>& attributes) override;
  bool Parse() override;
  bool Verify() override;

  // Reads the signer at a pointer; null is refused. False logs one error line per level that
  // failed.
  static bool ParseSigner(const LengthValueItem* item, SignerV2& signer);
  // Reads the other members from `data`. False logs one error line.
  static bool ParseSignedData(SignedDataV2& signedData);

 private:
  // As above, with what the pair holds of the signer.
  static bool ParseSigner(ByteCursor fields, bool isWhole, SignerV2& signer);
  bool VerifySigner(const SignerV2& signer);

  std::vector<SignerV2> signers_;
};

}  // namespace Quill
