// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <quillon/export.h>

// Returns true when the descriptor's file system is mounted read-only (ST_RDONLY). Returns false
// also when fstatvfs fails. Does not log.
[[nodiscard]] QUILLON_EXPORT bool ReadOnlyFS(int fd);

// Reads the platform's SDK level from the system property "ro.build.version.sdk". Returns false and
// logs one error line when the property is absent or empty; `out` is then unchanged. Throws what
// std::stoi throws when the property is not a number.
[[nodiscard]] QUILLON_EXPORT bool GetVersionSDK(int& out);
