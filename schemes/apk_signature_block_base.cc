// SPDX-License-Identifier: Apache-2.0

#include "schemes/apk_signature_block_base.h"

#include <limits>
#include <utility>

#include "crypto/x509_certificate.h"
#include "signing_block/process_hashes.h"
#include "util/log.h"

namespace Quill {
namespace {

bool TakeAllAttributes(ByteCursor items, uint64_t following, std::vector<Attribute>& out) {
  const auto take = [following](ByteCursor& rest, Attribute& attribute) {
    return TakeAttributeItem(rest, following, attribute);
  };
  return TakeAll(items, take, out);
}

}  // namespace

ApkSignatureBlockBase::ApkSignatureBlockBase(const ApkSignatureBlock* block,
                                             std::vector<RawData> chunks,
                                             std::optional<uint64_t> length)
    : block_(block), chunks_(std::move(chunks)), length_(length) {}

bool ApkSignatureBlockBase::VerifyMainCertificate(
    const std::vector<std::vector<uint8_t>>& certificates,
    const std::vector<uint8_t>& publicKey) const {
  if (certificates.empty() || publicKey.empty()) {
    QUILL_LOGE("APK doesn't have certificates or public key of signer is empty\n");
    return false;
  }
  X509Certificate certificate;
  if (!certificate.Parse(certificates.front())) {
    QUILL_LOGE("Can't parse X509 certificate\n");
    return false;
  }
  std::vector<uint8_t> certifiedKey;
  if (!certificate.GetPublicKey(certifiedKey)) {
    QUILL_LOGE("Can't get public key\n");
    return false;
  }
  if (certifiedKey != publicKey) {
    QUILL_LOGE("Public keys of certificate and signer are mismatched\n");
    return false;
  }
  return true;
}

bool ApkSignatureBlockBase::GetPublicKeys(std::vector<std::vector<uint8_t>>& out) {
  if (publicKeys_.empty()) return false;
  if (&out != &publicKeys_) out = publicKeys_;
  return true;
}

bool ApkSignatureBlockBase::ParseDigestItem(const LengthValueItem* item, Digest& out) {
  return item != nullptr && ReadAlgorithmItem(ItemBody(item), out);
}

bool ApkSignatureBlockBase::ParseSignatureItem(const LengthValueItem* item, Signature& out) {
  return item != nullptr && ReadAlgorithmItem(ItemBody(item), out);
}

bool ApkSignatureBlockBase::ParseAttributeItem(const LengthValueItem* item, Attribute& out) {
  if (item == nullptr) return false;
  ReadAttributeItem(ItemBody(item), /*behind=*/0, out);
  return true;
}

bool ApkSignatureBlockBase::ParseDigests(const LengthValueItem* sequence,
                                         std::vector<Digest>& out) {
  return sequence != nullptr && TakeAll(ItemBody(sequence), TakeAlgorithmItem<Digest>, out);
}

bool ApkSignatureBlockBase::ParseSignatures(const LengthValueItem* sequence,
                                            std::vector<Signature>& out) {
  return sequence != nullptr && TakeAll(ItemBody(sequence), TakeAlgorithmItem<Signature>, out);
}

bool ApkSignatureBlockBase::ParseCerts(const LengthValueItem* sequence,
                                       std::vector<std::vector<uint8_t>>& out) {
  return sequence != nullptr && TakeAll(ItemBody(sequence), TakeCertificate, out);
}

bool ApkSignatureBlockBase::ParseAttributes(const LengthValueItem* sequence,
                                            std::vector<Attribute>& out, uint64_t following) {
  if (sequence == nullptr) return false;
  const ByteCursor items = ItemBody(sequence);
  const auto start = reinterpret_cast<uintptr_t>(sequence);
  if (std::numeric_limits<uintptr_t>::max() - start < sizeof *sequence + items.Remaining()) {
    QUILL_LOGE("Out of range the sequence of additional attributes");
    return false;
  }
  return TakeAllAttributes(items, following, out);
}

bool ApkSignatureBlockBase::CompareOrder(const std::vector<Signature>& signatures,
                                         const std::vector<Digest>& digests) {
  return std::equal(signatures.begin(), signatures.end(), digests.begin(), digests.end(),
                    [](const Signature& signature, const Digest& digest) {
                      return signature.algorithmId == digest.algorithmId;
                    });
}

std::unique_ptr<Hash> ApkSignatureBlockBase::CreateHashFromAlgoId(uint32_t id) {
  const SignatureAlgorithm* algorithm = FindSignatureAlgorithm(id);
  if (algorithm == nullptr) {
    QUILL_LOGE("Not supported crypto algorithms for hash: 0x%x", id);
    return nullptr;
  }
  return Hash::CreateHashFromAlgoId(algorithm->digestNid);
}

std::unique_ptr<Verifier> ApkSignatureBlockBase::CreateVerifierFromAlgoId(uint32_t id) {
  const SignatureAlgorithm* algorithm = FindSignatureAlgorithm(id);
  if (algorithm == nullptr) {
    QUILL_LOGE("Not supported crypto algorithms for verifier: 0x%x", id);
    return nullptr;
  }
  return algorithm->verifier();
}

bool ApkSignatureBlockBase::CalcTopDigestOfAPK(std::unique_ptr<Hash>& hash,
                                               std::vector<uint8_t>& topDigest) {
  ProcessHashes engine(chunks_);
  if (!engine.Run(hash)) {
    QUILL_LOGE("Can't run calculate hashes in parallel");
    return false;
  }
  topDigest = engine.TopDigest();
  return true;
}

bool ApkSignatureBlockBase::ParseSigners(
    const std::function<bool(ByteCursor signer, bool isWhole)>& parseSigner) const {
  constexpr uint64_t kIdSize = sizeof block_->id;
  const uint64_t length = length_ ? *length_ : CopyRecord<ApkSignatureBlock>(block_).length;
  ByteCursor value(block_ + 1, length - std::min(length, kIdSize));

  // A length that cannot be read runs past the value like any other that is too large.
  uint32_t sequenceLength = std::numeric_limits<uint32_t>::max();
  value.TakeU32(sequenceLength);
  for (uint64_t left = sequenceLength; left != 0;) {
    const uint64_t before = value.Remaining();
    ByteCursor signer;
    const bool isWhole = TakeItemAtMost(value, signer);
    if (!parseSigner(signer, isWhole)) return false;
    const uint64_t taken = before - value.Remaining();
    if (taken > left) {
      QUILL_LOGE("Can't iterate to the next field signer");
      return false;
    }
    left -= taken;
  }
  return true;
}

std::vector<uint8_t> ApkSignatureBlockBase::TakeSignedData(ByteCursor& signer) {
  ByteCursor signedData;
  TakeItemAtMost(signer, signedData);
  return signedData.ToVector();
}

bool ApkSignatureBlockBase::TakeDigestsAndCertificates(
    ByteCursor& signedData, std::vector<Digest>& digests,
    std::vector<std::vector<uint8_t>>& certificates) {
  ByteCursor items;
  if (!signedData.TakeLengthValue(items) || !TakeAll(items, TakeAlgorithmItem<Digest>, digests)) {
    QUILL_LOGE("Can't parse digests");
    return false;
  }
  if (signedData.Remaining() == 0) {
    QUILL_LOGE("Can't iterate to the next field certificates");
    return false;
  }
  if (!signedData.TakeLengthValue(items) || !TakeAll(items, TakeCertificate, certificates)) {
    QUILL_LOGE("Can't parse certificates");
    return false;
  }
  return true;
}

bool ApkSignatureBlockBase::TakeAttributes(ByteCursor& signedData,
                                           std::vector<Attribute>& attributes) {
  if (signedData.Remaining() == 0) {
    QUILL_LOGE("Can't iterate to the next field attributes");
    return false;
  }
  ByteCursor items;
  if (!signedData.TakeLengthValue(items) ||
      !TakeAllAttributes(items, /*following=*/signedData.Remaining(), attributes)) {
    QUILL_LOGE("Can't parse attributes");
    return false;
  }
  return true;
}

bool ApkSignatureBlockBase::TakeSignaturesAndPublicKey(ByteCursor& signer, bool isWhole,
                                                       std::vector<Signature>& signatures,
                                                       std::vector<uint8_t>& publicKey) {
  if (signer.Remaining() == 0) {
    QUILL_LOGE("Can't iterate to the next field signatures");
    return false;
  }
  ByteCursor items;
  if (!signer.TakeLengthValue(items) || !TakeAll(items, TakeAlgorithmItem<Signature>, signatures)) {
    QUILL_LOGE("Can't parse signatures");
    return false;
  }
  ByteCursor key;
  const bool fits = signer.TakeLengthValue(key);
  publicKey = key.ToVector();
  if (!fits || !isWhole || signer.Remaining() != 0) {
    QUILL_LOGE("Can't iterate to the next field public key");
    return false;
  }
  return true;
}

bool ApkSignatureBlockBase::VerifySignature(const std::vector<Signature>& signatures,
                                            const std::vector<uint8_t>& publicKey,
                                            const std::vector<uint8_t>& signedData,
                                            VerifiedSignature& out) {
  const auto best = FindBestSupportedAlgoId(signatures);
  if (best == signatures.end()) {
    QUILL_LOGE("Can't find supporting signing algorithm");
    return false;
  }
  QUILL_LOGI("Found the best signature algorithm ID: 0x%x", best->algorithmId);
  out.hash = CreateHashFromAlgoId(best->algorithmId);
  if (!out.hash) {
    QUILL_LOGE("Can't find supporting hash algo");
    return false;
  }
  out.verifier = CreateVerifierFromAlgoId(best->algorithmId);
  if (!out.verifier) {
    QUILL_LOGE("Can't create verifier object");
    return false;
  }
  std::unique_ptr<Hash> verifierHash = out.hash->Clone();
  if (!verifierHash || !out.verifier->Init(publicKey, std::move(verifierHash))) {
    QUILL_LOGE("Can't initialize verifier object");
    return false;
  }
  if (!out.verifier->Verify(signedData, best->value)) {
    QUILL_LOGE("Can't verify signature");
    return false;
  }
  return true;
}

bool ApkSignatureBlockBase::VerifySignedFields(
    const std::vector<std::vector<uint8_t>>& certificates, const std::vector<uint8_t>& publicKey,
    const std::vector<Attribute>& attributes) {
  if (!VerifyMainCertificate(certificates, publicKey)) {
    QUILL_LOGE("Can't verify certificates");
    return false;
  }
  if (!VerifyAttributes(attributes)) {
    QUILL_LOGE("Can't verify additional attributes");
    return false;
  }
  return true;
}

bool ApkSignatureBlockBase::VerifyContent(const std::vector<Signature>& signatures,
                                          const std::vector<Digest>& digests,
                                          std::unique_ptr<Hash>& hash) {
  if (!CompareOrder(signatures, digests)) {
    QUILL_LOGE("Can't compare order signatures and digests");
    return false;
  }
  const auto best = FindBestSupportedAlgoId(digests);
  if (best == digests.end()) {
    QUILL_LOGE("Can't find supporting signing algorithm for digests");
    return false;
  }
  // Deliberate: digested anew for every signer; nothing is kept between them.
  std::vector<uint8_t> topDigest;
  if (!CalcTopDigestOfAPK(hash, topDigest)) {
    QUILL_LOGE("Can't calculate top digest of APK");
    return false;
  }
  if (best->value != topDigest) {
    QUILL_LOGE("Can't verify digests of APK");
    return false;
  }
  return true;
}

bool ApkSignatureBlockBase::StorePublicKey(const Verifier& verifier) {
  std::vector<uint8_t> publicKey;
  if (!verifier.GetPublicKey(publicKey)) {
    QUILL_LOGE("Can't get public key");
    return false;
  }
  publicKeys_.push_back(std::move(publicKey));
  return true;
}

}  // namespace Quill
