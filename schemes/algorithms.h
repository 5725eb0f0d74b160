// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "crypto/hash.h"
#include "crypto/verifier.h"

// The signature algorithms of the v2 and v3 schemes.

namespace Quill {

// Returns the algorithm's place in the order of preference, 0 for the most preferred one, and
// kUnsupported for an unknown ID.
inline constexpr size_t kUnsupported = SIZE_MAX;
[[nodiscard]] size_t PreferenceOf(uint32_t algorithmId);

// Return a new digest object for an algorithm ID, and a new verifier without a key. Null for an
// unknown ID, with one error line, or when memory runs out, without one.
[[nodiscard]] std::unique_ptr<Hash> CreateHash(uint32_t algorithmId);
[[nodiscard]] std::unique_ptr<Verifier> CreateVerifier(uint32_t algorithmId);

// Returns the first entry with the most preferred algorithm; the end when no entry's is supported.
template <typename Record>
[[nodiscard]] typename std::vector<Record>::const_iterator FindBestSupported(
    const std::vector<Record>& entries) {
  const auto best =
      std::min_element(entries.begin(), entries.end(), [](const Record& left, const Record& right) {
        return PreferenceOf(left.algorithmId) < PreferenceOf(right.algorithmId);
      });
  const bool found = best != entries.end() && PreferenceOf(best->algorithmId) != kUnsupported;
  return found ? best : entries.end();
}

}  // namespace Quill
