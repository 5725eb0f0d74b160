// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>

namespace Quill::Tool {

// Describes a result code of <quillon/tarn.h> in words.
[[nodiscard]] std::string TarnCodeText(uint32_t code);

}  // namespace Quill::Tool
