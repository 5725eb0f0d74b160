// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <openssl/base.h>

#include <cstdint>
#include <vector>

namespace Quill {

// Returns the number as big-endian bytes, without leading zeros.
[[nodiscard]] std::vector<uint8_t> NumberToBytes(const BIGNUM* number);

}  // namespace Quill
