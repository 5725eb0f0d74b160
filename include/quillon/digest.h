// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include <quillon/export.h>

// One-shot digests of a byte vector: 20 bytes for SHA-1, 32 for SHA-256, 16 for MD5. The first form
// resizes and fills `out`, and returns a pointer to the digest in `out`. Nothing here logs or
// fails.
QUILLON_EXPORT uint8_t* ComputeSHA1Digest(const std::vector<uint8_t>& in,
                                          std::vector<uint8_t>& out);
[[nodiscard]] QUILLON_EXPORT std::vector<uint8_t> ComputeSHA1Digest(const std::vector<uint8_t>& in);

QUILLON_EXPORT uint8_t* ComputeSHA256Digest(const std::vector<uint8_t>& in,
                                            std::vector<uint8_t>& out);
[[nodiscard]] QUILLON_EXPORT std::vector<uint8_t> ComputeSHA256Digest(
    const std::vector<uint8_t>& in);

QUILLON_EXPORT uint8_t* ComputeMD5Digest(const std::vector<uint8_t>& in, std::vector<uint8_t>& out);
[[nodiscard]] QUILLON_EXPORT std::vector<uint8_t> ComputeMD5Digest(const std::vector<uint8_t>& in);
