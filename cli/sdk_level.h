// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string_view>

namespace Quill::Tool {

// Returns true if the text is a decimal number from 0 to 2,147,483,647.
[[nodiscard]] bool IsSdkLevel(std::string_view text);

// On a workstation the environment variable QUILLON_SDK gives the platform's SDK level. Returns
// true if it is such a number or not set. Otherwise prints a diagnostic and
// returns false; the library cannot verify anything then. Call this before the library.
[[nodiscard]] bool IsSdkLevelUsable();

}  // namespace Quill::Tool
