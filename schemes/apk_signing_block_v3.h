// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "schemes/apk_signature_block_base.h"
#include "schemes/proof_of_rotation.h"

namespace Quill {

// APK Signature Scheme v3. Exactly one signer must cover the running platform's SDK version, and
// only that one is verified. Verify finds the public keys of its lineage, the oldest first, and
// last the signer's own.
class ApkSigningBlockV3 : public ApkSignatureBlockBase {
 public:
  using RotationParsedCertificate = Quill::RotationParsedCertificate;
  using RotationCertificate = Quill::RotationCertificate;
  using ProofOfRotation = Quill::ProofOfRotation;

  struct SignedDataV3 {
    // A private copy of what the signature covers. The other members are parsed from it.
    std::vector<uint8_t> data;
    uint32_t minSdk = 0;
    uint32_t maxSdk = 0;
    std::vector<Digest> digests;
    std::vector<std::vector<uint8_t>> certificates;  // DER
    std::vector<Attribute> attributes;
    std::vector<ProofOfRotation> proofOfRotation;  // empty without the attribute
  };
  struct SignerV3 {
    SignedDataV3 signedData;
    uint32_t minSdk = 0;  // both inclusive
    uint32_t maxSdk = 0;
    std::vector<Signature> signatures;
    std::vector<uint8_t> publicKey;  // DER SubjectPublicKeyInfo
  };

  using ApkSignatureBlockBase::ApkSignatureBlockBase;

  [[nodiscard]] bool VerifyAttributes(const std::vector<Attribute>& attributes) override;
  [[nodiscard]] bool Parse() override;
  // Throws what GetVersionSDK throws for an SDK property that is not a number.
  [[nodiscard]] bool Verify() override;

  // Parses the signer at a pointer. Null fails. False logs one error line for each level that
  // failed.
  [[nodiscard]] static bool ParseSigner(const LengthValueItem* item, SignerV3& signer);
  // Parses `data` into the other members. False logs one error line, two for the lineage.
  [[nodiscard]] static bool ParseSignedData(SignedDataV3& signedData);
  // Parses the lineage in `attributes`. False logs one error line.
  [[nodiscard]] static bool ParseAdditionalAttributes(SignedDataV3& signedData);

  // See the functions of the same names in proof_of_rotation.h. A null level fails.
  [[nodiscard]] static bool ParseProofOfRotation(const std::vector<uint8_t>& value,
                                                 std::vector<ProofOfRotation>& chain);
  [[nodiscard]] static bool ParseProofOfRotationLevel(const LengthValueItem* level,
                                                      ProofOfRotation& out);
  [[nodiscard]] static bool ParseProofOfRotationSignedData(const std::vector<uint8_t>& data,
                                                           RotationParsedCertificate& out);
  [[nodiscard]] static bool VerifyProofRotation(const std::vector<ProofOfRotation>& chain,
                                                const std::vector<uint8_t>& signingCertificate,
                                                std::vector<std::vector<uint8_t>>& publicKeys);

  // Copies the signer for the running platform. Returns false and logs one error line when there is
  // not exactly one, or when a signer's SDK range differs from the one in its signed data.
  [[nodiscard]] bool FindSigner(SignerV3& out);

 private:
  // As above, from the bytes of the signer that the pair holds.
  [[nodiscard]] static bool ParseSigner(ByteCursor fields, bool isWhole, SignerV3& signer);

  std::vector<SignerV3> signers_;
};

}  // namespace Quill
