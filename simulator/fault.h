// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "simulator/kernel_setup.h"

namespace tarnsim {

// Parses "REQUEST:N:ERRNO[:RESULT]", such as "sign:1:EIO". Returns an empty text and fills `fault`,
// or returns what is wrong.
[[nodiscard]] std::string ParseFault(std::string_view text, Fault& fault);

// Returns the pieces of the text between delimiters, empty ones included: one more than it has
// delimiters.
[[nodiscard]] std::vector<std::string> SplitSetting(std::string_view text, char delimiter);

}  // namespace tarnsim
