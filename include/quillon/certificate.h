// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <quillon/export.h>

namespace Quill {
class Apk;
}

// Has libhx.so store a process-authenticator certificate for the file behind `fd`, which belongs to
// the archive that `apk` opened from `zipFd`:
//
//               identity             certificate
//   package     its package name     the manufacturer key's bytes
//   plain JAR   the path of the JAR  four SHA-256 digests: the first of that path,
//                                    each other of the one before it
//
// For a package outside the Halyx feature (Apk's ignoreHalyxFilter does not count here), and for a
// JAR without the extended attribute "user.hx", nothing is stored or logged. The outcome is only
// logged.
QUILLON_EXPORT void HxSign(Quill::Apk& apk, int zipFd, int fd);
// The same with a package that this call opens from `zipFd`.
QUILLON_EXPORT void HxSign(int zipFd, int fd);
