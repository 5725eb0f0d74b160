// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <quillon/export.h>

// The functions that the platform's install and compile services call, with C names; C99 and
// C++17. Each function logs its arguments, labels and certifies files step by step, and logs each
// failure; the later steps still run. Descriptors are borrowed. A function throws only what the
// standard library throws; <quillon/apk.h> says when.

#ifdef __cplusplus
extern "C" {
#endif

// Labels the ART file that was compiled from the archive.
QUILLON_EXPORT void RunOEMFuncForProvisionBootArt(int apkFd, int artFd);

// Labels the OAT file and then the VDEX file that were compiled from the archive, then stores a
// certificate for each.
QUILLON_EXPORT void RunOEMFuncForProvisionOat(int apkFd, int oatFd, int vdexFd);

// Opens the VDEX file and then the OAT file for editing, before they are compiled again.
QUILLON_EXPORT void RunOEMFuncForStartProvisionOat(int oatFd, int vdexFd);

// Labels the package's installed native libraries, then the package itself, and stores a
// certificate for it. `apkPath` is only logged. With bit 0 of `flag` a package outside the Halyx
// feature is verified and labelled too, but gets no certificate; the other bits are not read.
QUILLON_EXPORT void RunOEMFuncForApkSigner(int apkFd, const char* apkPath, int flag);

#ifdef __cplusplus
}
#endif
