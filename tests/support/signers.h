// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "schemes/proof_of_rotation.h"
#include "signing_block/raw_data.h"
#include "tests/support/signing_key.h"
#include "tests/support/wire.h"

namespace Quill {

// The regions of a package that its content digest covers, in order.
using Regions = std::vector<ByteVector>;

// Returns one chunk for each region.
inline std::vector<RawData> Chunks(const Regions& regions) {
  std::vector<RawData> chunks;
  for (const ByteVector& region : regions) chunks.push_back({region.data(), region.size()});
  return chunks;
}

// Returns the digest over the regions' pieces of 1 MiB, one piece after the other.
ByteVector ContentDigest(uint32_t algorithmId, const Regions& regions);

// The parts of a signer. A part that is left out is made to fit the others.
struct SignerOptions {
  const SigningKey* key = &TestKey("p256-0");
  std::optional<std::vector<uint32_t>> signatureAlgorithms;  // default: what suits the key
  std::optional<std::vector<uint32_t>> digestAlgorithms;     // default: the signatures'
  std::optional<ByteVector> contentDigest;                   // default: the regions'
  std::optional<std::vector<ByteVector>> certificates;       // default: the key's
  std::optional<ByteVector> publicKey;                       // default: the key's
  std::vector<ByteVector> attributes;                        // ID and value
  ByteVector behindAttributes;                               // more signed data
  // Only v3 has these.
  uint32_t minSdk = 24;
  uint32_t maxSdk = 0x7fffffff;
  std::optional<uint32_t> signedMaxSdk;  // default: maxSdk
};

// The names of bytes in the texts of signers and lineages: NAME and NAME.publicKey are the
// certificate and the public key of a key in tests/keys, A>B is the signature by the key A of the
// signed part of a level with the certificate B, "none" is no certificate, and "unknown" is one of
// a key of an unknown kind.
const std::map<std::string, ByteVector>& KnownBytes();

// Returns the signer with the parts that a text such as "sdk=24,30; publicKey=" sets, whose bytes
// are written as Bytes in notation.h says. Throws std::invalid_argument for an unknown part.
SignerOptions SignerWith(const std::string& parts);

// Returns the value of a v2 or v3 pair: signers over the regions.
ByteVector PairValue(bool isV3, const std::vector<SignerOptions>& signers, const Regions& regions);

// Returns the items one after the other, each behind its length.
ByteVector Sequence(const std::vector<ByteVector>& items);

// Returns the lineage of the keys, oldest first.
std::vector<ProofOfRotation> Lineage(const std::vector<const SigningKey*>& keys);
// Returns the proof-of-rotation attribute that holds the levels.
ByteVector LineageAttribute(const std::vector<ProofOfRotation>& levels);

}  // namespace Quill
