// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <quillon/apk.h>

#include "cli/verdict.h"

namespace Quill::Tool {

// Returns what a verdict on a package that did not verify needs to know. `apk` was opened from `fd`
// and IsGoodApk has been called.
[[nodiscard]] Circumstances CircumstancesOf(Apk& apk, int fd);

// Returns true if the archive behind `fd`, which the library takes for a plain JAR, is a damaged
// package: it has an AndroidManifest.xml that cannot be extracted, or WasPackage.
[[nodiscard]] bool IsDamagedPackage(int fd);

// Returns true when an archive without an AndroidManifest.xml was a package once. Either an APK
// Signing Block is before its central directory (the block's magic, or the same size at its start
// and end), or the JAR manifest lists the missing file. `apk` was opened from `fd`, and IsGoodZip
// is true.
[[nodiscard]] bool WasPackage(Apk& apk, int fd);

}  // namespace Quill::Tool
