// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <stddef.h>

#ifdef __cplusplus
#include <cstdint>
#include <string>
#include <vector>
#endif

#include <quillon/export.h>

// Base64 with the standard alphabet and "=" padding (RFC 4648, section 4), without line breaks in
// the output. Nothing here logs. C99 sees the first three functions.

#ifdef __cplusplus
extern "C" {
#endif

// Returns the number of characters that `n` bytes encode to, a terminating zero included.
QUILLON_NODISCARD QUILLON_EXPORT size_t base64encode_len(size_t n);

// Encodes `n` bytes into `out`, with a terminating zero. Returns 0, or 1 when more than `capacity`
// characters are needed; `out` then holds as many as fit, unterminated.
QUILLON_NODISCARD QUILLON_EXPORT int base64encode(const unsigned char* in, size_t n, char* out,
                                                  size_t capacity);

// Decodes `n` characters into `out`, which has room for `*outLength` bytes. Line feeds, carriage
// returns and zeros are skipped. Decoding stops at the first "=", but padding is not required. A
// single character left over is dropped. Returns 0 and sets `*outLength` to the bytes written.
// Returns 1 and does not change `*outLength` when a character is outside the alphabet or `out` is
// too small.
QUILLON_NODISCARD QUILLON_EXPORT int base64decode(const char* in, size_t n, unsigned char* out,
                                                  size_t* outLength);

#ifdef __cplusplus
}  // extern "C"

// Returns the encoded bytes; an empty text for inputs of 0, 1, 2 and 4 bytes.
[[nodiscard]] QUILLON_EXPORT std::string Base64Encode(const std::vector<uint8_t>& bytes);
[[nodiscard]] QUILLON_EXPORT std::string Base64Encode(const std::string& bytes);

// Returns the decoded bytes; none when `text` does not decode.
[[nodiscard]] QUILLON_EXPORT std::vector<uint8_t> Base64Decode(const std::string& text);
#endif
