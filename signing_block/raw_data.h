// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

namespace Quill {

// One region of the package to be digested. Borrows the bytes.
struct RawData {
  const uint8_t* data;
  uint64_t length;  // bytes
};

}  // namespace Quill
