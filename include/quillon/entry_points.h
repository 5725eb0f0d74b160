// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <quillon/export.h>

// What the platform's install and compile services call, under plain names. Each function traces
// its arguments, labels and certifies files step by step, and logs what fails; later steps run all
// the same. The descriptors are borrowed. Only what the standard library itself throws (see
// quillon/apk.h) can leave a function otherwise than by its return.

#ifdef __cplusplus
extern "C" {
#endif

// Labels the ART file compiled from the archive.
QUILLON_EXPORT void RunOEMFuncForProvisionBootArt(int apkFd, int artFd);

// Labels the OAT, then the VDEX file compiled from the archive, then has both certified.
QUILLON_EXPORT void RunOEMFuncForProvisionOat(int apkFd, int oatFd, int vdexFd);

// Opens the VDEX, then the OAT file for editing, before they are compiled anew.
QUILLON_EXPORT void RunOEMFuncForStartProvisionOat(int oatFd, int vdexFd);

// Labels the package's installed native libraries, then the package itself, and has it certified.
// `apkPath` is only traced. Bit 0 of `flag` has the package verified and labelled whether or not it
// falls under the Halyx feature; the other bits are not read.
QUILLON_EXPORT void RunOEMFuncForApkSigner(int apkFd, const char* apkPath, int flag);

#ifdef __cplusplus
}
#endif
