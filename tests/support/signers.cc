// SPDX-License-Identifier: Apache-2.0

#include "tests/support/signers.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "tests/support/notation.h"

namespace Quill {
namespace {

// A digest or signature item.
ByteVector AlgorithmItem(uint32_t algorithmId, const ByteVector& value) {
  return Wire().U32(algorithmId).LengthPrefixed(value);
}

ByteVector Signer(bool isV3, const SignerOptions& options, const Regions& regions) {
  const SigningKey& key = *options.key;
  const std::vector<uint32_t> keyAlgorithm = {key.algorithmId};
  const auto signatureIds = options.signatureAlgorithms.value_or(keyAlgorithm);
  std::vector<ByteVector> digests, signatures;
  for (const uint32_t id : options.digestAlgorithms.value_or(signatureIds)) {
    digests.push_back(AlgorithmItem(
        id, options.contentDigest ? *options.contentDigest : ContentDigest(id, regions)));
  }
  const std::vector<ByteVector> keyCertificate = {key.certificate};
  Wire signedData;
  signedData.LengthPrefixed(Sequence(digests));
  signedData.LengthPrefixed(Sequence(options.certificates.value_or(keyCertificate)));
  if (isV3) {
    signedData.U32(options.minSdk).U32(options.signedMaxSdk.value_or(options.maxSdk));
  }
  signedData.LengthPrefixed(Sequence(options.attributes)).Bytes(options.behindAttributes);
  for (const uint32_t id : signatureIds) {
    signatures.push_back(AlgorithmItem(id, Sign(key, id, signedData)));
  }
  Wire signer;
  signer.LengthPrefixed(signedData);
  if (isV3) signer.U32(options.minSdk).U32(options.maxSdk);
  return signer.LengthPrefixed(Sequence(signatures))
      .LengthPrefixed(options.publicKey.value_or(key.publicKey));
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

const std::map<std::string, ByteVector>& KnownBytes() {
  static const auto kBytes = [] {
    ByteVector unknown = TestKey("p256-0").certificate;
    unknown.at(73) = 0x7f;  // the end of the object identifier of EC keys
    std::map<std::string, ByteVector> bytes = {{"unknown", unknown}, {"none", {1}}};
    const std::string kKeys[] = {"rsa2048-0", "p256-0", "p256-1", "p384-0"};
    for (const std::string& key : kKeys) bytes[key] = TestKey(key).certificate;
    for (const auto& [name, certificate] : std::map(bytes)) {
      const ByteVector signedPart = Wire().LengthPrefixed(certificate).U32(7);
      for (const std::string& key : kKeys) {
        const std::string link = std::string(key).append(">").append(name);
        bytes[link] = Sign(TestKey(key), TestKey(key).algorithmId, signedPart);
      }
    }
    for (const std::string& key : kKeys) bytes[key + ".publicKey"] = TestKey(key).publicKey;
    return bytes;
  }();
  return kBytes;
}

SignerOptions SignerWith(const std::string& parts) {
  SignerOptions signer;
  for (const std::string& part : Split(parts, "; ")) {
    const std::string name = part.substr(0, part.find('=')), value = part.substr(name.size() + 1);
    std::vector<ByteVector> items;
    std::vector<uint32_t> numbers;
    for (const std::string& item : Split(value, ",")) {
      items.push_back(Bytes(item, KnownBytes()));
      numbers.push_back(static_cast<uint32_t>(std::strtoul(item.c_str(), nullptr, 0)));
    }
    if (name == "key") {
      signer.key = &TestKey(value);
    } else if (name == "sdk") {
      signer.minSdk = numbers[0], signer.maxSdk = numbers[1], signer.signedMaxSdk = numbers.back();
    } else if (name == "signatures" || name == "digests") {
      (name == "digests" ? signer.digestAlgorithms : signer.signatureAlgorithms) = numbers;
    } else if (name == "certificates") {
      signer.certificates = items;
    } else if (name == "attributes") {
      signer.attributes = items;
    } else if (name == "publicKey") {
      signer.publicKey = Bytes(value, KnownBytes());
    } else if (name == "contentDigest") {
      signer.contentDigest = Bytes(value);
    } else if (name == "behindAttributes") {
      signer.behindAttributes = Bytes(value);
    } else {
      throw std::invalid_argument("no such part: " + part);
    }
  }
  return signer;
}

ByteVector PairValue(bool isV3, const std::vector<SignerOptions>& signers, const Regions& regions) {
  Wire items;
  for (const SignerOptions& options : signers) items.LengthPrefixed(Signer(isV3, options, regions));
  return Wire().LengthPrefixed(items);
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
