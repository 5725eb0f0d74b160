// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>

#include "cli/commands.h"

namespace Quill::Tool {

// Calls `entryPoint` for the archive behind the descriptor, -1 for none, and prints the lines that
// the library logs meanwhile. Returns kFailed when one of them is an error. Returns kUnverified,
// with a diagnostic, when the library left a file without a label by its rules. An archive that is
// a damaged package is kFailed all the same.
[[nodiscard]] ExitStatus RunLogged(int archive, const std::function<void()>& entryPoint);

}  // namespace Quill::Tool
