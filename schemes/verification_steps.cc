// SPDX-License-Identifier: Apache-2.0

#include "schemes/verification_steps.h"

#include <algorithm>
#include <utility>

#include "crypto/x509_certificate.h"
#include "findings/refusal.h"
#include "schemes/algorithms.h"
#include "signing_block/process_hashes.h"
#include "util/log.h"

namespace Quill {
namespace {

// None of the algorithms is supported.
template <typename Record>
bool RefuseAlgorithm(const std::vector<Record>& entries) {
  if (entries.empty()) return Refuse(Reason::kMalformed, "signatures");
  return Refuse(Reason::kAlgorithmUnsupported, entries.front().algorithmId);
}

}  // namespace

bool VerifySignature(const std::vector<Signature>& signatures,
                     const std::vector<uint8_t>& publicKey, const std::vector<uint8_t>& signedData,
                     VerifiedSignature& out) {
  const auto best = FindBestSupported(signatures);
  if (best == signatures.end()) {
    QUILL_LOGE("Can't find supporting signing algorithm");
    return RefuseAlgorithm(signatures);
  }
  QUILL_LOGI("Found the best signature algorithm ID: 0x%x", best->algorithmId);
  out.hash = CreateHash(best->algorithmId);
  if (!out.hash) {
    QUILL_LOGE("Can't find supporting hash algo");
    return false;
  }
  out.verifier = CreateVerifier(best->algorithmId);
  if (!out.verifier) {
    QUILL_LOGE("Can't create verifier object");
    return false;
  }
  std::unique_ptr<Hash> verifierHash = out.hash->Clone();
  if (!verifierHash || !out.verifier->Init(publicKey, std::move(verifierHash))) {
    QUILL_LOGE("Can't initialize verifier object");
    return Refuse(Reason::kKeyUnusable);
  }
  if (!out.verifier->Verify(signedData, best->value)) {
    QUILL_LOGE("Can't verify signature");
    return Refuse(Reason::kSignatureMismatch, best->algorithmId);
  }
  return true;
}

bool VerifyMainCertificate(const std::vector<std::vector<uint8_t>>& certificates,
                           const std::vector<uint8_t>& publicKey) {
  if (certificates.empty() || publicKey.empty()) {
    QUILL_LOGE("APK doesn't have certificates or public key of signer is empty\n");
    return Refuse(Reason::kCertificateMissing);
  }
  X509Certificate certificate;
  if (!certificate.Parse(certificates.front())) {
    QUILL_LOGE("Can't parse X509 certificate\n");
    return Refuse(Reason::kCertificateMalformed);
  }
  std::vector<uint8_t> certifiedKey;
  if (!certificate.GetPublicKey(certifiedKey)) {
    QUILL_LOGE("Can't get public key\n");
    return Refuse(Reason::kCertificateMalformed);
  }
  if (certifiedKey != publicKey) {
    QUILL_LOGE("Public keys of certificate and signer are mismatched\n");
    return Refuse(Reason::kCertificateKeyDiffers, {0, {}, &certifiedKey, &publicKey});
  }
  return true;
}

bool CompareOrder(const std::vector<Signature>& signatures, const std::vector<Digest>& digests) {
  return std::equal(signatures.begin(), signatures.end(), digests.begin(), digests.end(),
                    [](const Signature& signature, const Digest& digest) {
                      return signature.algorithmId == digest.algorithmId;
                    });
}

bool CalcTopDigest(const std::vector<RawData>& chunks, std::unique_ptr<Hash>& hash,
                   std::vector<uint8_t>& topDigest, const FilePages& pages) {
  ProcessHashes engine(chunks, pages);
  if (!engine.Run(hash)) {
    QUILL_LOGE("Can't run calculate hashes in parallel");
    return false;
  }
  topDigest = engine.TopDigest();
  return true;
}

bool VerifyContent(const std::vector<Signature>& signatures, const std::vector<Digest>& digests,
                   const std::vector<RawData>& chunks, std::unique_ptr<Hash>& hash,
                   const FilePages& pages) {
  if (!CompareOrder(signatures, digests)) {
    QUILL_LOGE("Can't compare order signatures and digests");
    return Refuse(Reason::kAlgorithmsDiffer);
  }
  const auto best = FindBestSupported(digests);
  if (best == digests.end()) {
    QUILL_LOGE("Can't find supporting signing algorithm for digests");
    return RefuseAlgorithm(digests);
  }
  // Deliberate: every signer has the package digested again; no result is kept for the next.
  std::vector<uint8_t> topDigest;
  if (!CalcTopDigest(chunks, hash, topDigest, pages)) {
    QUILL_LOGE("Can't calculate top digest of APK");
    return false;
  }
  if (best->value != topDigest) {
    QUILL_LOGE("Can't verify digests of APK");
    return Refuse(Reason::kDigestMismatch, {0, {}, &best->value, &topDigest});
  }
  return true;
}

}  // namespace Quill
