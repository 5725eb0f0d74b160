// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include <quillon/apk.h>

// The steps that label one file, for TarnSign and TarnSignJni.

namespace Quill {

// Returns true when the package's files are labelled: it falls under the Halyx feature, or was
// opened to ignore the feature.
[[nodiscard]] bool TakesPartInHalyx(Apk& apk);

}  // namespace Quill

// Labels the file behind `fd` on behalf of the archive `apk`, which must be a valid ZIP archive.
// Like TarnSign otherwise: result codes, log lines of the single steps, errno.
uint32_t TarnSignOat(Quill::Apk& apk, int fd);

// Computes the SHA-1 digest of the whole file behind `fd`. Returns false and logs one error line
// when the file cannot be mapped (an empty file cannot) or memory is short; `out` is then
// unchanged, and errno is that of the failed mapping. `unused` is not read.
[[nodiscard]] bool CalcHashFile(int fd, int unused, std::vector<uint8_t>& out);
