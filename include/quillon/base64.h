// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <stddef.h>

#ifdef __cplusplus
#include <cstdint>
#include <string>
#include <vector>
#endif

#include <quillon/export.h>

// Base64 with the standard alphabet and "=" padding (RFC 4648, section 4), no line breaks on
// output. Nothing here logs. The first three functions are for C99, too.

#ifdef __cplusplus
extern "C" {
#endif

// Characters that `n` bytes encode to, and a terminating zero.
QUILLON_EXPORT size_t base64encode_len(size_t n);

// Encodes `n` bytes and a terminating zero into `out`. Returns 0, or 1 when more than `capacity`
// characters are needed; `out` then holds as many as fit, unterminated.
QUILLON_EXPORT int base64encode(const unsigned char* in, size_t n, char* out, size_t capacity);

// Decodes `n` characters into `out`, which holds `*outLength` bytes. Line feeds, carriage returns
// and zeros are skipped; decoding stops at the first "=", and padding is not required; a single
// character left over is dropped. Returns 0 and sets `*outLength` to the bytes written, or returns
// 1 and leaves it when a character is outside the alphabet or `out` is too small.
QUILLON_EXPORT int base64decode(const char* in, size_t n, unsigned char* out, size_t* outLength);

#ifdef __cplusplus
}  // extern "C"

// The encoded bytes; empty for inputs of 0, 1, 2 and 4 bytes.
QUILLON_EXPORT std::string Base64Encode(const std::vector<uint8_t>& bytes);
QUILLON_EXPORT std::string Base64Encode(const std::string& bytes);

// The decoded bytes; empty when `text` does not decode.
QUILLON_EXPORT std::vector<uint8_t> Base64Decode(const std::string& text);
#endif
