// SPDX-License-Identifier: Apache-2.0

#include "fuzz/signers_mutator.h"

#include <algorithm>

#include "fuzz/fixed_keys.h"
#include "util/byte_cursor.h"

namespace Quill {
namespace {

// The fields of a signer. Sequences do not include their own length.
struct SignerFields {
  ByteVector digests, certificates, signedSdkRange, attributes, behindAttributes;
  ByteVector sdkRange, signatures, publicKey;
};

bool TakeField(ByteCursor& from, ByteVector& out) {
  ByteCursor body;
  if (!from.TakeLengthValue(body)) return false;
  out = body.ToVector();
  return true;
}

bool TakeSdkRange(SchemeVersion version, ByteCursor& from, ByteVector& out) {
  if (version == SchemeVersion::kV2) return true;
  ByteCursor range;
  if (!from.Take(8, range)) return false;
  out = range.ToVector();
  return true;
}

bool TakeSigner(SchemeVersion version, ByteCursor& signers, SignerFields& out) {
  ByteCursor signer;
  ByteCursor signedData;
  if (!signers.TakeLengthValue(signer) || !signer.TakeLengthValue(signedData) ||
      !TakeField(signedData, out.digests) || !TakeField(signedData, out.certificates) ||
      !TakeSdkRange(version, signedData, out.signedSdkRange) ||
      !TakeField(signedData, out.attributes)) {
    return false;
  }
  out.behindAttributes = signedData.ToVector();
  return TakeSdkRange(version, signer, out.sdkRange) && TakeField(signer, out.signatures) &&
         TakeField(signer, out.publicKey);
}

std::vector<SignerFields> TakeSigners(SchemeVersion version, ByteCursor value) {
  std::vector<SignerFields> signers;
  ByteCursor sequence;
  if (!value.TakeLengthValue(sequence)) return {};
  while (sequence.Remaining() != 0) {
    SignerFields signer;
    if (!TakeSigner(version, sequence, signer)) return {};
    signers.push_back(std::move(signer));
  }
  return signers;
}

ByteVector SignedData(const SignerFields& signer) {
  return Wire()
      .LengthPrefixed(signer.digests)
      .LengthPrefixed(signer.certificates)
      .Bytes(signer.signedSdkRange)
      .LengthPrefixed(signer.attributes)
      .Bytes(signer.behindAttributes);
}

ByteVector Value(const std::vector<SignerFields>& signers) {
  std::vector<ByteVector> items;
  items.reserve(signers.size());
  for (const SignerFields& signer : signers) {
    items.push_back(Wire()
                        .LengthPrefixed(SignedData(signer))
                        .Bytes(signer.sdkRange)
                        .LengthPrefixed(signer.signatures)
                        .LengthPrefixed(signer.publicKey));
  }
  return Wire().LengthPrefixed(Sequence(items));
}

// Returns the algorithms of all signatures that can be parsed.
std::vector<uint32_t> AlgorithmsOf(const SignerFields& signer) {
  std::vector<uint32_t> ids;
  ByteCursor items(signer.signatures);
  ByteCursor item;
  uint32_t id;
  while (items.TakeLengthValue(item) && item.TakeU32(id)) ids.push_back(id);
  return ids;
}

ByteVector AlgorithmItem(uint32_t id, const ByteVector& value) {
  return Wire().U32(id).LengthPrefixed(value);
}

void DigestAgain(SignerFields& signer, const Regions& regions) {
  std::vector<ByteVector> items;
  for (const uint32_t id : AlgorithmsOf(signer)) {
    items.push_back(AlgorithmItem(id, ContentDigest(id, regions)));
  }
  signer.digests = Sequence(items);
}

void SignAgain(SignerFields& signer) {
  const SigningKey* key = FindFixedKey(signer.publicKey);
  if (key == nullptr) return;
  std::vector<ByteVector> items;
  for (const uint32_t id : AlgorithmsOf(signer)) {
    items.push_back(AlgorithmItem(id, SignAnyway(*key, id, SignedData(signer))));
  }
  signer.signatures = Sequence(items);
}

void UseKey(SignerFields& signer, const SigningKey& key) {
  signer.publicKey = key.publicKey;
  signer.certificates = Sequence({key.certificate});
}

void SetAlgorithms(SignerFields& signer, const std::vector<uint32_t>& ids) {
  std::vector<ByteVector> items;
  items.reserve(ids.size());
  for (const uint32_t id : ids) items.push_back(AlgorithmItem(id, {}));
  signer.signatures = Sequence(items);
}

// Returns a lineage that ends with `last`. It is usually a good one.
ByteVector LineageEndingIn(const SigningKey& last, Random& random) {
  std::vector<const SigningKey*> keys;
  for (const SigningKey& key : FixedKeys()) {
    if (&key != &last && random.OneIn(2)) keys.push_back(&key);
  }
  keys.push_back(&last);
  std::vector<ProofOfRotation> levels = Lineage(keys);
  if (random.OneIn(2)) return LineageAttribute(levels);

  ProofOfRotation& level = random.OneOf(levels);
  switch (random.Below(4)) {
    case 0:
      MutateBytes(level.rotationCertificate.data);
      break;
    case 1:
      MutateBytes(level.signature);
      break;
    case 2:
      level.signatureAlgorithmId = random.OneOf(kAlgorithmIds);
      break;
    default:
      levels.push_back(levels.back());
      keys.push_back(&last);
      break;
  }
  // Signs each level again over its new content.
  for (size_t i = 1; i < levels.size() && !random.OneIn(8); ++i) {
    levels[i].signature = SignAnyway(*keys[i - 1], levels[i - 1].signatureAlgorithmId,
                                     levels[i].rotationCertificate.data);
  }
  return LineageAttribute(levels);
}

ByteVector FreshAttributes(SchemeVersion version, const SignerFields& signer, Random& random) {
  const SigningKey* key = FindFixedKey(signer.publicKey);
  if (version == SchemeVersion::kV2 || key == nullptr) {
    const ByteVector strippingProtection = Wire().U32(0xbeeff00d).U32(2 + random.Below(2));
    return Sequence({strippingProtection});
  }
  std::vector<ByteVector> lineages(1 + (random.OneIn(8) ? 1 : 0));
  for (ByteVector& lineage : lineages) lineage = LineageEndingIn(*key, random);
  return Sequence(lineages);
}

void ChangeSigner(SchemeVersion version, SignerFields& signer, Random& random) {
  ByteVector* const fields[] = {
      &signer.digests,          &signer.certificates, &signer.signedSdkRange, &signer.attributes,
      &signer.behindAttributes, &signer.sdkRange,     &signer.signatures,     &signer.publicKey};
  switch (random.Below(8)) {
    case 0:
      UseKey(signer, random.OneOf(FixedKeys()));
      break;
    case 1: {
      std::vector<uint32_t> ids(1 + random.Below(3));
      for (uint32_t& id : ids) id = random.OneOf(kAlgorithmIds);
      SetAlgorithms(signer, ids);
      break;
    }
    case 2:
      if (version == SchemeVersion::kV3) signer.sdkRange = signer.signedSdkRange;
      break;
    case 3:
      signer.attributes = FreshAttributes(version, signer, random);
      break;
    default:
      MutateBytes(*random.OneOf(fields));
      break;
  }
}

}  // namespace

const Regions& SignedRegions() {
  static const Regions regions = {{'e', 'n', 't', 'r', 'i', 'e', 's'}, {'d', 'i', 'r'}, {'e'}};
  return regions;
}

ByteVector FreshValue(SchemeVersion version, Random& random, const Regions& regions) {
  SignerOptions options;
  options.key = &random.OneOf(FixedKeys());
  if (version == SchemeVersion::kV2) return PairValue(/*isV3=*/false, {options}, regions);
  if (random.OneIn(2)) options.attributes = {LineageEndingIn(*options.key, random)};
  return PairValue(/*isV3=*/true, {options}, regions);
}

size_t MutateSigners(SchemeVersion version, uint8_t* data, size_t size, size_t maxSize,
                     unsigned seed) {
  Random random(seed);
  if (random.OneIn(4)) return LLVMFuzzerMutate(data, size, maxSize);
  std::vector<SignerFields> signers = TakeSigners(version, {data, size});
  if (signers.empty()) {
    return PutMutated(FreshValue(version, random, SignedRegions()), data, size, maxSize);
  }
  if (random.OneIn(16)) signers.push_back(random.OneOf(signers));
  if (random.OneIn(16)) signers.pop_back();
  for (SignerFields& signer : signers) {
    if (!random.OneIn(4)) ChangeSigner(version, signer, random);
    if (!random.OneIn(4)) DigestAgain(signer, SignedRegions());
    if (!random.OneIn(8)) SignAgain(signer);
  }
  return PutMutated(Value(signers), data, size, maxSize);
}

bool ChangeSignedData(ByteVector& value, size_t pick) {
  ByteCursor cursor(value);
  ByteCursor sequence;
  ByteCursor signer;
  ByteCursor signedData;
  if (!cursor.TakeLengthValue(sequence) || !sequence.TakeLengthValue(signer) ||
      sequence.Remaining() != 0 || !signer.TakeLengthValue(signedData) ||
      signedData.Remaining() == 0) {
    return false;
  }
  const auto start = static_cast<size_t>(signedData.Data() - value.data());
  value[start + pick % signedData.Remaining()] ^= static_cast<uint8_t>(1U << pick % 8);
  return true;
}

}  // namespace Quill
