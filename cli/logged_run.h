// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>

#include "cli/kernel_report.h"

namespace Quill::Tool {

// Calls `entryPoint` for the archive behind the descriptor, -1 for none, and reports what it did.
// The lines that the library logs meanwhile go to standard error, or with `json` into the report.
// The status is kFailed when one of them is an error, and kUnverified when the library left a file
// without a label by its rules. An archive that is a damaged package is kFailed all the same.
[[nodiscard]] KernelReport RunLogged(int archive, bool json,
                                     const std::function<void()>& entryPoint);

}  // namespace Quill::Tool
