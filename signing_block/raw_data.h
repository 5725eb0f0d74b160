// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

namespace Quill {

// A piece of the package that is to be digested. The bytes are borrowed.
struct RawData {
  const uint8_t* data;
  uint64_t length;  // bytes
};

}  // namespace Quill
