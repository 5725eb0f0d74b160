// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <quillon/apk.h>

namespace Quill::Tool {

// True when an archive without an AndroidManifest.xml was a package once: an APK Signing Block
// stands before its central directory, by the block's magic or by two equal sizes around it, or the
// JAR manifest lists the file that is missing. `apk` was opened from `fd`, and IsGoodZip.
bool WasPackage(Apk& apk, int fd);

}  // namespace Quill::Tool
