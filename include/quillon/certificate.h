// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <quillon/export.h>

namespace Quill {
class Apk;
}

// Has libhx.so store a process-authenticator certificate for the file behind `fd`, which derives
// from the archive that `apk` opened from `zipFd`:
//
//   package      identity: package name       certificate: the manufacturer key's bytes
//   plain JAR    identity: the JAR's path     certificate: 128 bytes of chained SHA-256 of that
//   path
//
// Nothing is stored, and nothing logged, for a package outside the Halyx feature (a waiver does not
// count here) and for a JAR without the extended attribute "user.hx". The outcome is only logged.
QUILLON_EXPORT void HxSign(Quill::Apk& apk, int zipFd, int fd);
// The same with a package opened from `zipFd` for this call.
QUILLON_EXPORT void HxSign(int zipFd, int fd);
