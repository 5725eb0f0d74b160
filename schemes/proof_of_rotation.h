// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "util/byte_cursor.h"

// The lineage of signing certificates through which a package's key was rotated. Its levels run
// from the oldest certificate to the newest; each is signed with the key of the level before.

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
  uint32_t flags = 0;                 // never examined
  uint32_t signatureAlgorithmId = 0;  // of the next level's signature
  std::vector<uint8_t> signature;
};

// Parse a lineage, one level and the signed part of a level. They log nothing. `value` is an
// attribute's stored value, four bytes longer than its own. Levels before a bad one stay in
// `chain`.
[[nodiscard]] bool ParseProofOfRotation(const std::vector<uint8_t>& value,
                                        std::vector<ProofOfRotation>& chain);
[[nodiscard]] bool ParseProofOfRotationLevel(ByteCursor fields, ProofOfRotation& out);
[[nodiscard]] bool ParseProofOfRotationSignedData(const std::vector<uint8_t>& data,
                                                  RotationParsedCertificate& out);

// Verifies every link of `chain`, whose last certificate must be `signingCertificate`. Appends the
// public keys of all levels but the last to `publicKeys`. An empty chain passes. False logs one
// error line, after a certificate's own; keys appended before stay.
[[nodiscard]] bool VerifyProofRotation(const std::vector<ProofOfRotation>& chain,
                                       const std::vector<uint8_t>& signingCertificate,
                                       std::vector<std::vector<uint8_t>>& publicKeys);

}  // namespace Quill
