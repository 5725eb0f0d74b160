// SPDX-License-Identifier: Apache-2.0

#include "schemes/proof_of_rotation.h"

#include <functional>
#include <memory>
#include <set>
#include <utility>

#include "crypto/x509_certificate.h"
#include "schemes/apk_signing_block_v3.h"
#include "util/log.h"

namespace Quill {
namespace {

// The four bytes that every stored attribute value carries behind its own.
constexpr uint64_t kTrailing = 4;

const std::vector<uint8_t>& CertificateOf(const ProofOfRotation& level) {
  return level.rotationCertificate.parsed.certificate;
}

// Checks the signature of level `number` with the key of the level before, which is appended to
// `publicKeys`.
bool VerifyLink(uint32_t algorithmId, const std::vector<uint8_t>& previousKey,
                const ProofOfRotation& level, size_t number,
                std::vector<std::vector<uint8_t>>& publicKeys) {
  const std::unique_ptr<Hash> hash = ApkSignatureBlockBase::CreateHashFromAlgoId(algorithmId);
  if (!hash) {
    QUILL_LOGE("Can't find supporting hash algo for certificate in proof of rotation chain: #%zu",
               number);
    return false;
  }
  const std::unique_ptr<Verifier> verifier =
      ApkSignatureBlockBase::CreateVerifierFromAlgoId(algorithmId);
  if (!verifier) {
    QUILL_LOGE("Can't create verifier object for certificate in proof of rotation chain: #%zu",
               number);
    return false;
  }
  std::unique_ptr<Hash> verifierHash = hash->Clone();
  if (!verifierHash || !verifier->Init(previousKey, std::move(verifierHash))) {
    QUILL_LOGE("Can't initialize verifier object in proof of rotation chain: #%zu", number);
    return false;
  }
  if (!verifier->Verify(level.rotationCertificate.data, level.signature)) {
    QUILL_LOGE("Can't verify signature for certificate in proof of rotation chain: #%zu", number);
    return false;
  }
  std::vector<uint8_t> publicKey;
  if (!verifier->GetPublicKey(publicKey)) {
    QUILL_LOGE("Can't obtain public key: #%zu", number);
    return false;
  }
  publicKeys.push_back(std::move(publicKey));
  return true;
}

bool ParseLevel(ByteCursor fields, ProofOfRotation& out) {
  ByteCursor signedPart;
  if (!fields.TakeLengthValue(signedPart)) return false;
  out.rotationCertificate.data = signedPart.ToVector();
  if (!ApkSigningBlockV3::ParseProofOfRotationSignedData(out.rotationCertificate.data,
                                                         out.rotationCertificate.parsed)) {
    return false;
  }
  ByteCursor signature;
  if (!fields.TakeU32(out.flags) || !fields.TakeU32(out.signatureAlgorithmId) ||
      !fields.TakeLengthValue(signature)) {
    return false;
  }
  out.signature = signature.ToVector();
  return true;  // what is left of the level is ignored
}

}  // namespace

bool ApkSigningBlockV3::ParseProofOfRotation(const std::vector<uint8_t>& value,
                                             std::vector<ProofOfRotation>& chain) {
  ByteCursor cursor(value);
  ByteCursor levels;
  uint32_t version;
  if (value.size() < kTrailing || !cursor.Take(value.size() - kTrailing, levels) ||
      !levels.TakeU32(version)) {
    return false;
  }
  while (levels.Remaining() != 0) {
    ByteCursor fields;
    ProofOfRotation level;
    if (!levels.TakeLengthValue(fields) || !ParseLevel(fields, level)) return false;
    chain.push_back(std::move(level));
  }
  return true;
}

bool ApkSigningBlockV3::ParseProofOfRotationLevel(const LengthValueItem* level,
                                                  ProofOfRotation& out) {
  return level != nullptr && ParseLevel(ItemBody(level), out);
}

bool ApkSigningBlockV3::ParseProofOfRotationSignedData(const std::vector<uint8_t>& data,
                                                       RotationParsedCertificate& out) {
  ByteCursor fields(data);
  ByteCursor certificate;
  if (!fields.TakeLengthValue(certificate)) return false;
  out.certificate = certificate.ToVector();
  return fields.TakeU32(out.signedAlgorithmId) && fields.Remaining() == 0;
}

bool ApkSigningBlockV3::VerifyProofRotation(const std::vector<ProofOfRotation>& chain,
                                            const std::vector<uint8_t>& signingCertificate,
                                            std::vector<std::vector<uint8_t>>& publicKeys) {
  if (chain.empty()) return true;
  if (CertificateOf(chain.back()) != signingCertificate) {
    // Deliberate: the blanks here and the slip in the next message are what log readers know.
    QUILL_LOGE(
        "Terminal certificate in Proof-of-rotation record does not match             APK signing "
        "certificate");
    return false;
  }
  X509Certificate certificate;
  if (!certificate.Parse(CertificateOf(chain.front()))) {
    QUILL_LOGE("Can't parse X509 certificate for certificate in proof ofrotation chain");
    return false;
  }
  std::vector<uint8_t> previousKey;
  if (!certificate.GetPublicKey(previousKey)) {
    QUILL_LOGE("Can't get public key for certificate in proof of rotation chain");
    return false;
  }

  std::set<std::reference_wrapper<const std::vector<uint8_t>>, std::less<std::vector<uint8_t>>>
      seen{CertificateOf(chain.front())};
  for (size_t i = 1; i < chain.size(); ++i) {
    const ProofOfRotation& level = chain[i];
    const size_t number = i + 1;
    // Deliberate: the algorithm is the one named in the level before, and the signed one is not
    // compared with it.
    if (!VerifyLink(chain[i - 1].signatureAlgorithmId, previousKey, level, number, publicKeys)) {
      return false;
    }
    if (!seen.insert(CertificateOf(level)).second) {
      QUILL_LOGE("Encountered duplicate entries in proof of rotation record at certificate: #%zu",
                 number);
      return false;
    }
    if (!certificate.Parse(CertificateOf(level))) {
      QUILL_LOGE("Can't parse X509 certificate for certificate in proof of rotation chain: #%zu",
                 number);
      return false;
    }
    if (!certificate.GetPublicKey(previousKey)) {
      QUILL_LOGE("Can't get public key from certificate in proof of rotation chain: #%zu", number);
      return false;
    }
  }
  return true;
}

}  // namespace Quill
