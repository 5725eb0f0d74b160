// SPDX-License-Identifier: Apache-2.0

#include "schemes/apk_signature_block_base.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "util/log.h"

namespace Quill {

ApkSignatureBlockBase::ApkSignatureBlockBase(const ApkSignatureBlock* block,
                                             std::vector<RawData> chunks,
                                             std::optional<uint64_t> length)
    : block_(block), chunks_(std::move(chunks)), length_(length) {}

bool ApkSignatureBlockBase::VerifyMainCertificate(
    const std::vector<std::vector<uint8_t>>& certificates,
    const std::vector<uint8_t>& publicKey) const {
  return Quill::VerifyMainCertificate(certificates, publicKey);
}

bool ApkSignatureBlockBase::GetPublicKeys(std::vector<std::vector<uint8_t>>& out) {
  if (publicKeys_.empty()) return false;
  if (&out != &publicKeys_) out = publicKeys_;
  return true;
}

bool ApkSignatureBlockBase::ParseDigestItem(const LengthValueItem* item, Digest& out) {
  return item != nullptr && ParseItem(ItemBody(item), out);
}

bool ApkSignatureBlockBase::ParseSignatureItem(const LengthValueItem* item, Signature& out) {
  return item != nullptr && ParseItem(ItemBody(item), out);
}

bool ApkSignatureBlockBase::ParseAttributeItem(const LengthValueItem* item, Attribute& out) {
  if (item == nullptr) return false;
  ParseItem(ItemBody(item), /*behind=*/0, out);
  return true;
}

bool ApkSignatureBlockBase::ParseDigests(const LengthValueItem* sequence,
                                         std::vector<Digest>& out) {
  return sequence != nullptr && ParseSequence(ItemBody(sequence), out);
}

bool ApkSignatureBlockBase::ParseSignatures(const LengthValueItem* sequence,
                                            std::vector<Signature>& out) {
  return sequence != nullptr && ParseSequence(ItemBody(sequence), out);
}

bool ApkSignatureBlockBase::ParseCerts(const LengthValueItem* sequence,
                                       std::vector<std::vector<uint8_t>>& out) {
  return sequence != nullptr && ParseSequence(ItemBody(sequence), out);
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
  return ParseSequence(items, following, out);
}

bool ApkSignatureBlockBase::CompareOrder(const std::vector<Signature>& signatures,
                                         const std::vector<Digest>& digests) {
  return Quill::CompareOrder(signatures, digests);
}

std::unique_ptr<Hash> ApkSignatureBlockBase::CreateHashFromAlgoId(uint32_t id) {
  return CreateHash(id);
}

std::unique_ptr<Verifier> ApkSignatureBlockBase::CreateVerifierFromAlgoId(uint32_t id) {
  return CreateVerifier(id);
}

bool ApkSignatureBlockBase::CalcTopDigestOfAPK(std::unique_ptr<Hash>& hash,
                                               std::vector<uint8_t>& topDigest) {
  return CalcTopDigest(chunks_, hash, topDigest, pages_);
}

ByteCursor ApkSignatureBlockBase::PairValue() const {
  constexpr uint64_t kIdSize = sizeof block_->id;
  const uint64_t length = length_ ? *length_ : CopyRecord<ApkSignatureBlock>(block_).length;
  return {block_ + 1, length - std::min(length, kIdSize)};
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
                                          std::unique_ptr<Hash>& hash) const {
  return Quill::VerifyContent(signatures, digests, chunks_, hash, pages_);
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
