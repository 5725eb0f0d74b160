// SPDX-License-Identifier: Apache-2.0

#include "schemes/signer_fields.h"

#include <limits>

#include "findings/refusal.h"
#include "util/log.h"

namespace Quill {

bool ParseSigners(ByteCursor value,
                  const std::function<bool(ByteCursor signer, bool isWhole)>& parseSigner) {
  // A length that cannot be read counts as one that is too large.
  uint32_t sequenceLength;
  if (!value.TakeU32(sequenceLength)) sequenceLength = std::numeric_limits<uint32_t>::max();
  size_t index = 0;
  for (uint64_t left = sequenceLength; left != 0;) {
    LookAtSigner(index++);
    const uint64_t before = value.Remaining();
    ByteCursor signer;
    const bool isWhole = TakeItemAtMost(value, signer);
    if (!parseSigner(signer, isWhole)) return false;
    const uint64_t taken = before - value.Remaining();
    if (taken > left) {
      QUILL_LOGE("Can't iterate to the next field signer");
      return Refuse(Reason::kMalformed, "signer");
    }
    left -= taken;
  }
  return true;
}

std::vector<uint8_t> TakeSignedData(ByteCursor& signer) {
  ByteCursor signedData;
  TakeItemAtMost(signer, signedData);
  return signedData.ToVector();
}

bool TakeDigestsAndCertificates(ByteCursor& signedData, std::vector<Digest>& digests,
                                std::vector<std::vector<uint8_t>>& certificates) {
  ByteCursor items;
  if (!signedData.TakeLengthValue(items) || !ParseSequence(items, digests)) {
    QUILL_LOGE("Can't parse digests");
    return Refuse(Reason::kMalformed, "digests");
  }
  if (signedData.Remaining() == 0) {
    QUILL_LOGE("Can't iterate to the next field certificates");
    return Refuse(Reason::kMalformed, "certificates");
  }
  if (!signedData.TakeLengthValue(items) || !ParseSequence(items, certificates)) {
    QUILL_LOGE("Can't parse certificates");
    return Refuse(Reason::kMalformed, "certificates");
  }
  return true;
}

bool TakeAttributes(ByteCursor& signedData, std::vector<Attribute>& attributes) {
  if (signedData.Remaining() == 0) {
    QUILL_LOGE("Can't iterate to the next field attributes");
    return Refuse(Reason::kMalformed, "attributes");
  }
  ByteCursor items;
  if (!signedData.TakeLengthValue(items) ||
      !ParseSequence(items, /*following=*/signedData.Remaining(), attributes)) {
    QUILL_LOGE("Can't parse attributes");
    return Refuse(Reason::kMalformed, "attributes");
  }
  return true;
}

bool TakeSignaturesAndPublicKey(ByteCursor& signer, bool isWhole,
                                std::vector<Signature>& signatures,
                                std::vector<uint8_t>& publicKey) {
  if (signer.Remaining() == 0) {
    QUILL_LOGE("Can't iterate to the next field signatures");
    return Refuse(Reason::kMalformed, "signatures");
  }
  ByteCursor items;
  if (!signer.TakeLengthValue(items) || !ParseSequence(items, signatures)) {
    QUILL_LOGE("Can't parse signatures");
    return Refuse(Reason::kMalformed, "signatures");
  }
  ByteCursor key;
  const bool fits = signer.TakeLengthValue(key);
  publicKey = key.ToVector();
  if (!fits || !isWhole || signer.Remaining() != 0) {
    QUILL_LOGE("Can't iterate to the next field public key");
    return Refuse(Reason::kMalformed, "publicKey");
  }
  return true;
}

}  // namespace Quill
