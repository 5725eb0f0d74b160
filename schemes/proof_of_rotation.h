// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

// The lineage of signing certificates through which a package's key was rotated: levels from the
// oldest certificate to the newest, each signed with the key of the level before.

namespace Quill {

struct RotationParsedCertificate {
  std::vector<uint8_t> certificate;  // DER
  uint32_t signedAlgorithmId = 0;    // never compared
};

struct RotationCertificate {
  std::vector<uint8_t> data;  // a private copy of what the level's signature covers
  RotationParsedCertificate parsed;
};

// One level.
struct ProofOfRotation {
  RotationCertificate rotationCertificate;
  uint32_t flags = 0;  // never examined
  // Names the algorithm of the next level's signature.
  uint32_t signatureAlgorithmId = 0;
  std::vector<uint8_t> signature;
};

}  // namespace Quill
