// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <quillon/export.h>

// True when the descriptor lies on a file system mounted read-only (ST_RDONLY); false also when
// fstatvfs fails. Does not log.
QUILLON_EXPORT bool ReadOnlyFS(int fd);

// The platform's SDK level, from the system property "ro.build.version.sdk". Returns false and logs
// one error line when the property is absent or empty; `out` is then unchanged. Throws what
// std::stoi throws when the property is not a number.
QUILLON_EXPORT bool GetVersionSDK(int& out);
