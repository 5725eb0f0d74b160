// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <string_view>

// Needs only the standard library: the simulator is linked with this file but not with the library.

namespace Quill {

// Returns the symbolic name of an errno, such as "EIO"; its number when it has none.
[[nodiscard]] std::string ErrnoName(int number);

// Returns the errno with this name.
[[nodiscard]] std::optional<int> ErrnoByName(std::string_view name);

}  // namespace Quill
