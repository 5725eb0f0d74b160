// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include <quillon/export.h>

namespace Quill {
class Apk;
}

// Integrity labels for a package, its native libraries and the files compiled from it, and for
// files compiled from a plain JAR. Each function logs its steps and returns a result code of
// <quillon/tarn.h>. When a system call failed, errno is what that call left. Descriptors and
// packages are borrowed.

// Labels the file behind `fd` on behalf of the archive that `apk` opened from `zipFd`:
//
//   no valid archive         nothing is labelled: TARN_FAILED
//   package outside Halyx    nothing is labelled; the kernel closes its record of the file: TARN_OK
//   package                  labels the file if the package verifies; otherwise TARN_FAILED
//   plain JAR                labels the file if the kernel verifies the JAR; otherwise the code of
//                            TarnVerifyFd. A file that cannot be mapped is skipped: TARN_OK
QUILLON_EXPORT uint32_t TarnSign(Quill::Apk& apk, int zipFd, int fd);
// The same with a package that this call opens from `zipFd`.
QUILLON_EXPORT uint32_t TarnSign(int zipFd, int fd);

// Labels the native libraries that are installed beside the package: for an entry
// "lib/arm64-v8a/libx.so" the file "lib/arm64/libx.so" in the package's folder. Skips files that
// do not exist, and only logs the failures of single files. Returns TARN_FAILED when the package
// does not verify, otherwise TARN_OK. For a package outside the Halyx feature the kernel closes its
// record of `fd` instead. `unused` is not read.
QUILLON_EXPORT uint32_t TarnSignJni(Quill::Apk& apk, int fd, const char* unused);
