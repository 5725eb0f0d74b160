// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "simulator/call.h"

namespace tarnsim {

// The paths that the kernel's interfaces have. A null path is none of them.

[[nodiscard]] bool IsDevicePath(const char* path);
[[nodiscard]] bool IsLegacyMarkPath(const char* path);  // whose presence shows the legacy interface

// Parses a path such as "/proc/self/integrity/value" or "/proc/12/integrity/label". A pid of 0
// means "self". Returns false for other paths.
[[nodiscard]] bool ParseTaskFile(const char* path, Call& call, int& pid);

// Returns true for the device and the text files, also by a path with dots or links.
[[nodiscard]] bool IsKernelFile(const std::string& path);

}  // namespace tarnsim
