// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "crypto/hash.h"
#include "crypto/verifier.h"

// The signature algorithms of the v2 and v3 schemes.

namespace Quill {

struct SignatureAlgorithm {
  uint32_t id;                              // as signers name it
  int digestNid;                            // for Hash::CreateHashFromAlgoId
  std::unique_ptr<Verifier> (*verifier)();  // makes one without a key; null when out of memory
};

// Returns all supported algorithms, the most preferred first.
[[nodiscard]] const std::array<SignatureAlgorithm, 7>& SignatureAlgorithms();

// Return a new digest object for an algorithm ID, and a new verifier without a key. Null for an
// unknown ID, with one error line, or when memory runs out, without one.
[[nodiscard]] std::unique_ptr<Hash> CreateHash(uint32_t algorithmId);
[[nodiscard]] std::unique_ptr<Verifier> CreateVerifier(uint32_t algorithmId);

// Returns the first entry with the most preferred algorithm; the end when no entry's is supported.
template <typename Record>
[[nodiscard]] typename std::vector<Record>::const_iterator FindBestSupported(
    const std::vector<Record>& entries) {
  for (const SignatureAlgorithm& algorithm : SignatureAlgorithms()) {
    const auto found = std::find_if(
        entries.begin(), entries.end(),
        [&algorithm](const Record& entry) { return entry.algorithmId == algorithm.id; });
    if (found != entries.end()) return found;
  }
  return entries.end();
}

}  // namespace Quill
