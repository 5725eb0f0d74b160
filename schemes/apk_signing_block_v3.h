// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "schemes/apk_signature_block_base.h"
#include "schemes/proof_of_rotation.h"

namespace Quill {

// APK Signature Scheme v3: exactly one signer must cover the running platform's SDK version, and
// only that one is verified. The public keys are those of its lineage, the oldest first, and last
// its own.
class ApkSigningBlockV3 : public ApkSignatureBlockBase {
 public:
  using RotationParsedCertificate = Quill::RotationParsedCertificate;
  using RotationCertificate = Quill::RotationCertificate;
  using ProofOfRotation = Quill::ProofOfRotation;

  struct SignedDataV3 {
    std::vector<uint8_t>
        data;  // a private copy of what the signature covers; the rest is read from it
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

  bool VerifyAttributes(const std::vector<Attribute>& attributes) override;
  bool Parse() override;
  // Throws what GetVersionSDK throws for an SDK property that is not a number.
  bool Verify() override;

  // Reads the signer at a pointer; null is refused. False logs one error line per level that
  // failed.
  static bool ParseSigner(const LengthValueItem* item, SignerV3& signer);
  // Reads the other members from `data`. False logs one error line, two for the lineage.
  static bool ParseSignedData(SignedDataV3& signedData);
  // Reads the lineage out of `attributes`. False logs one error line.
  static bool ParseAdditionalAttributes(SignedDataV3& signedData);

  // Read a lineage, one level and a level's signed part; they log nothing. `value` is an
  // attribute's stored value, four bytes longer than its own; a null level is refused. Levels read
  // before a bad one stay in `chain`.
  static bool ParseProofOfRotation(const std::vector<uint8_t>& value,
                                   std::vector<ProofOfRotation>& chain);
  static bool ParseProofOfRotationLevel(const LengthValueItem* level, ProofOfRotation& out);
  static bool ParseProofOfRotationSignedData(const std::vector<uint8_t>& data,
                                             RotationParsedCertificate& out);

  // Checks every link of `chain`, whose last certificate must be `signingCertificate`, and appends
  // the public keys of all levels but the last to `publicKeys`. An empty chain passes. False logs
  // one error line, after a certificate's own; keys appended before stay.
  static bool VerifyProofRotation(const std::vector<ProofOfRotation>& chain,
                                  const std::vector<uint8_t>& signingCertificate,
                                  std::vector<std::vector<uint8_t>>& publicKeys);

  // Copies the signer for the running platform. False logs one error line when there is not exactly
  // one, or when any signer's SDK range differs from the one in its signed data.
  bool FindSigner(SignerV3& out);

 private:
  // As above, with what the pair holds of the signer.
  static bool ParseSigner(ByteCursor fields, bool isWhole, SignerV3& signer);
  std::vector<SignerV3> signers_;
};

}  // namespace Quill
