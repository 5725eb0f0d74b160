// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>

namespace Quill::Tool {

// Describes an errno in words, with its name.
[[nodiscard]] std::string ErrnoText(int error);

// Describes a result code of <quillon/tarn.h> in words, with its number.
[[nodiscard]] std::string TarnCodeText(uint32_t code);

}  // namespace Quill::Tool
