// SPDX-License-Identifier: Apache-2.0

#include "schemes/proof_of_rotation.h"

#include <functional>
#include <memory>
#include <set>
#include <utility>

#include "crypto/x509_certificate.h"
#include "findings/acceptance.h"
#include "findings/refusal.h"
#include "schemes/algorithms.h"
#include "util/log.h"

namespace Quill {
namespace {

// Every stored attribute value has this many bytes after its own (see Attribute).
constexpr uint64_t kTrailing = 4;

// Certificates by content; borrows them.
using CertificateSet =
    std::set<std::reference_wrapper<const std::vector<uint8_t>>, std::less<std::vector<uint8_t>>>;

const std::vector<uint8_t>& CertificateOf(const ProofOfRotation& level) {
  return level.rotationCertificate.parsed.certificate;
}

// Verifies the signature of level `number` with the key of the level before, and appends that key
// to `publicKeys`.
bool VerifyLink(uint32_t algorithmId, const std::vector<uint8_t>& previousKey,
                const ProofOfRotation& level, size_t number,
                std::vector<std::vector<uint8_t>>& publicKeys) {
  const std::unique_ptr<Hash> hash = CreateHash(algorithmId);
  if (!hash) {
    QUILL_LOGE("Can't find supporting hash algo for certificate in proof of rotation chain: #%zu",
               number);
    return Refuse(Reason::kLineageAlgorithm, number);
  }
  const std::unique_ptr<Verifier> verifier = CreateVerifier(algorithmId);
  if (!verifier) {
    QUILL_LOGE("Can't create verifier object for certificate in proof of rotation chain: #%zu",
               number);
    return false;
  }
  std::unique_ptr<Hash> verifierHash = hash->Clone();
  if (!verifierHash || !verifier->Init(previousKey, std::move(verifierHash))) {
    QUILL_LOGE("Can't initialize verifier object in proof of rotation chain: #%zu", number);
    return Refuse(Reason::kLineageKey, number);
  }
  if (!verifier->Verify(level.rotationCertificate.data, level.signature)) {
    QUILL_LOGE("Can't verify signature for certificate in proof of rotation chain: #%zu", number);
    return Refuse(Reason::kLineageSignature, number);
  }
  std::vector<uint8_t> publicKey;
  if (!verifier->GetPublicKey(publicKey)) {
    QUILL_LOGE("Can't obtain public key: #%zu", number);
    return false;
  }
  publicKeys.push_back(std::move(publicKey));
  return true;
}

// Reads the public key of the certificate that the lineage starts with.
bool ReadFirstKey(const std::vector<uint8_t>& der, std::vector<uint8_t>& key) {
  X509Certificate certificate;
  if (!certificate.Parse(der)) {
    // Deliberate: the slip in the message is what log readers know.
    QUILL_LOGE("Can't parse X509 certificate for certificate in proof ofrotation chain");
    return Refuse(Reason::kLineageCertificate, 1);
  }
  if (!certificate.GetPublicKey(key)) {
    QUILL_LOGE("Can't get public key for certificate in proof of rotation chain");
    return Refuse(Reason::kLineageCertificate, 1);
  }
  return true;
}

// Reads the public key of the certificate of level `number`.
bool ReadKey(const std::vector<uint8_t>& der, size_t number, std::vector<uint8_t>& key) {
  X509Certificate certificate;
  if (!certificate.Parse(der)) {
    QUILL_LOGE("Can't parse X509 certificate for certificate in proof of rotation chain: #%zu",
               number);
    return Refuse(Reason::kLineageCertificate, number);
  }
  if (!certificate.GetPublicKey(key)) {
    QUILL_LOGE("Can't get public key from certificate in proof of rotation chain: #%zu", number);
    return Refuse(Reason::kLineageCertificate, number);
  }
  return true;
}

}  // namespace

bool ParseProofOfRotation(const std::vector<uint8_t>& value, std::vector<ProofOfRotation>& chain) {
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
    if (!levels.TakeLengthValue(fields) || !ParseProofOfRotationLevel(fields, level)) return false;
    chain.push_back(std::move(level));
  }
  return true;
}

bool ParseProofOfRotationSignedData(const std::vector<uint8_t>& data,
                                    RotationParsedCertificate& out) {
  ByteCursor fields(data);
  ByteCursor certificate;
  if (!fields.TakeLengthValue(certificate)) return false;
  out.certificate = certificate.ToVector();
  return fields.TakeU32(out.signedAlgorithmId) && fields.Remaining() == 0;
}

bool ParseProofOfRotationLevel(ByteCursor fields, ProofOfRotation& out) {
  ByteCursor signedPart;
  if (!fields.TakeLengthValue(signedPart)) return false;
  out.rotationCertificate.data = signedPart.ToVector();
  if (!ParseProofOfRotationSignedData(out.rotationCertificate.data,
                                      out.rotationCertificate.parsed)) {
    return false;
  }
  ByteCursor signature;
  if (!fields.TakeU32(out.flags) || !fields.TakeU32(out.signatureAlgorithmId) ||
      !fields.TakeLengthValue(signature)) {
    return false;
  }
  out.signature = signature.ToVector();
  return true;  // the rest of the level is ignored
}

bool VerifyProofRotation(const std::vector<ProofOfRotation>& chain,
                         const std::vector<uint8_t>& signingCertificate,
                         std::vector<std::vector<uint8_t>>& publicKeys) {
  if (chain.empty()) return true;
  if (CertificateOf(chain.back()) != signingCertificate) {
    // Deliberate: the blanks in the message are what log readers know.
    QUILL_LOGE(
        "Terminal certificate in Proof-of-rotation record does not match             APK signing certificate");
    return Refuse(Reason::kLineageEnd, chain.size());
  }
  std::vector<uint8_t> previousKey;
  if (!ReadFirstKey(CertificateOf(chain.front()), previousKey)) return false;
  NoteLevel(CertificateOf(chain.front()), previousKey, chain.front().flags);

  CertificateSet seen{CertificateOf(chain.front())};
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
      return Refuse(Reason::kLineageDuplicate, number);
    }
    if (!ReadKey(CertificateOf(level), number, previousKey)) return false;
    NoteLevel(CertificateOf(level), previousKey, level.flags);
    if (level.rotationCertificate.parsed.signedAlgorithmId != chain[i - 1].signatureAlgorithmId) {
      Warn(Warning::kLineageAlgorithmsDiffer, number);
    }
  }
  return true;
}

}  // namespace Quill
