// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <string>
#include <string_view>

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

// Calls `visit` for each entry that is no directory. Returns false as soon as `visit` does, and
// when the archive library finds an entry damaged.
[[nodiscard]] bool ForEachEntry(
    Apk& apk, const std::function<bool(const std::string& name, ZipEntry& entry)>& visit);

// Returns true for the name of a signature file (.SF), and for the names that a JAR signature never
// covers: that, its block and the manifest, all of them directly in META-INF/.
[[nodiscard]] bool IsSignatureFile(std::string_view name);
[[nodiscard]] bool IsSignatureRelated(std::string_view name);

}  // namespace Quill::Tool
