// SPDX-License-Identifier: Apache-2.0

#include "tests/support/signers.h"

#include <algorithm>
#include <map>

namespace Quill {
namespace {

enum class Scheme { kV2, kV3 };

// One digest or signature item.
ByteVector AlgorithmItem(uint32_t algorithmId, const ByteVector& value) {
  return Wire().U32(algorithmId).LengthPrefixed(value);
}

ByteVector Value(Scheme scheme, const std::vector<SignerOptions>& signers, const Regions& regions) {
  std::map<uint32_t, ByteVector> contentDigests;  // made once, however many signers there are
  const auto contentDigest = [&](uint32_t id) {
    if (contentDigests.count(id) == 0) contentDigests[id] = ContentDigest(id, regions);
    return contentDigests[id];
  };
  std::vector<ByteVector> items;
  for (const SignerOptions& options : signers) {
    const SigningKey& key = *options.key;
    const auto signatureIds =
        options.signatureAlgorithms.value_or(std::vector<uint32_t>{key.algorithmId});
    const auto certificates =
        options.certificates.value_or(std::vector<ByteVector>{key.certificate});
    std::vector<ByteVector> digests;
    for (uint32_t id : options.digestAlgorithms.value_or(signatureIds)) {
      digests.push_back(
          AlgorithmItem(id, options.contentDigest ? *options.contentDigest : contentDigest(id)));
    }

    Wire signedData;
    signedData.LengthPrefixed(Sequence(digests)).LengthPrefixed(Sequence(certificates));
    if (scheme == Scheme::kV3) {
      signedData.U32(options.signedMinSdk.value_or(options.minSdk));
      signedData.U32(options.signedMaxSdk.value_or(options.maxSdk));
    }
    signedData.LengthPrefixed(Sequence(options.attributes)).Bytes(options.behindAttributes);

    std::vector<ByteVector> signatures;
    signatures.reserve(signatureIds.size());
    for (uint32_t id : signatureIds) {
      signatures.push_back(AlgorithmItem(id, Sign(key, id, signedData)));
    }
    Wire signer;
    signer.LengthPrefixed(signedData);
    if (scheme == Scheme::kV3) signer.U32(options.minSdk).U32(options.maxSdk);
    signer.LengthPrefixed(Sequence(signatures));
    signer.LengthPrefixed(options.publicKey.value_or(key.publicKey));
    items.push_back(signer);
  }
  return Wire().LengthPrefixed(Sequence(items));
}

}  // namespace

ByteVector ContentDigest(uint32_t algorithmId, const Regions& regions) {
  constexpr size_t kPieceSize = 1 << 20;
  const EVP_MD* md = AlgorithmDigest(algorithmId);
  Wire digests;
  uint32_t count = 0;
  for (const ByteVector& region : regions) {
    for (size_t offset = 0; offset < region.size(); offset += kPieceSize, ++count) {
      const auto begin = region.begin() + static_cast<ptrdiff_t>(offset);
      const size_t size = std::min(kPieceSize, region.size() - offset);
      const ByteVector piece(begin, begin + static_cast<ptrdiff_t>(size));
      digests.Bytes(DigestOf(md, Wire().U8(0xa5).LengthPrefixed(piece)));
    }
  }
  return DigestOf(md, Wire().U8(0x5a).U32(count).Bytes(digests));
}

ByteVector V2Value(const std::vector<SignerOptions>& signers, const Regions& regions) {
  return Value(Scheme::kV2, signers, regions);
}

ByteVector V3Value(const std::vector<SignerOptions>& signers, const Regions& regions) {
  return Value(Scheme::kV3, signers, regions);
}

ByteVector Sequence(const std::vector<ByteVector>& items) {
  Wire wire;
  for (const ByteVector& item : items) wire.LengthPrefixed(item);
  return wire;
}

std::vector<ProofOfRotation> Lineage(const std::vector<const SigningKey*>& keys) {
  std::vector<ProofOfRotation> levels;
  for (const SigningKey* key : keys) {
    const SigningKey* signer = levels.empty() ? key : keys[levels.size() - 1];
    ProofOfRotation level;
    level.rotationCertificate.parsed = {key->certificate, signer->algorithmId};
    level.rotationCertificate.data =
        Wire().LengthPrefixed(key->certificate).U32(signer->algorithmId);
    level.signatureAlgorithmId = key->algorithmId;
    if (signer != key) {
      level.signature = Sign(*signer, signer->algorithmId, level.rotationCertificate.data);
    }
    levels.push_back(level);
  }
  return levels;
}

ByteVector LineageAttribute(const std::vector<ProofOfRotation>& levels) {
  Wire attribute;
  attribute.U32(0x3ba06f8c).U32(1);  // ID and version
  for (const ProofOfRotation& level : levels) {
    attribute.LengthPrefixed(Wire()
                                 .LengthPrefixed(level.rotationCertificate.data)
                                 .U32(level.flags)
                                 .U32(level.signatureAlgorithmId)
                                 .LengthPrefixed(level.signature));
  }
  return attribute;
}

}  // namespace Quill
