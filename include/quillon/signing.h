// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include <quillon/export.h>

namespace Quill {
class Apk;
}

// Integrity labels for a package, its native libraries and the files compiled from it, and for
// files compiled from a plain JAR. Each function logs its course and returns a result code of
// tarn.h; when a system call is what failed, errno on return is that call's. Descriptors and
// packages are borrowed.

// Labels the file behind `fd` on behalf of the archive that `apk` opened from `zipFd`. A package
// outside the Halyx feature has nothing to label: the kernel closes its record of the file, and
// that is a success. The archive must be valid, or the code is TARN_FAILED; a package must verify,
// or likewise; a plain JAR must pass the kernel's verification, or the code is that of
// TarnVerifyFd.
QUILLON_EXPORT uint32_t TarnSign(Quill::Apk& apk, int zipFd, int fd);
// The same with a package opened from `zipFd` for this call.
QUILLON_EXPORT uint32_t TarnSign(int zipFd, int fd);

// Labels the package's native libraries that are installed beside it, for an entry
// "lib/arm64-v8a/libx.so" the file "lib/arm64/libx.so" in the folder of the package. Files that are
// not there are skipped, and failures of single files are only logged: the code is TARN_OK unless
// the package itself is refused with TARN_FAILED. Outside the Halyx feature the kernel closes its
// record of `fd` instead. `unused` is not read.
QUILLON_EXPORT uint32_t TarnSignJni(Quill::Apk& apk, int fd, const char* unused);

// Not exported from here on.

// TarnSign without the test of the archive and without its two progress lines.
uint32_t TarnSignOat(Quill::Apk& apk, int fd);

// Puts the SHA-1 digest of the whole file behind `fd` into `out`. Returns false, and logs one error
// line, when the file cannot be mapped (an empty one cannot) or memory is short; `out` is then
// unchanged. `unused` is not read.
bool CalcHashFile(int fd, int unused, std::vector<uint8_t>& out);
