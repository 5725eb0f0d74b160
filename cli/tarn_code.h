// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>

namespace Quill::Tool {

// A result code of the integrity interface in words.
std::string TarnCodeText(uint32_t code);

}  // namespace Quill::Tool
