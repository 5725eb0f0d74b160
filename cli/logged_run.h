// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>

#include "cli/commands.h"

namespace Quill::Tool {

// Calls `entryPoint` and prints the lines that the library logs meanwhile. Returns kFailed when one
// of them is an error. Returns kUnverified, with a diagnostic, when the library left a file without
// a label by its rules.
[[nodiscard]] ExitStatus RunLogged(const std::function<void()>& entryPoint);

}  // namespace Quill::Tool
