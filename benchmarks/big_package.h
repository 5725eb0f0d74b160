// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include <quillon/file.h>

#include "tests/support/signing_key.h"

namespace Quill {

// What a large package is signed with.
struct BigSignature {
  int scheme;  // 2 or 3
  const SigningKey* key;
  uint32_t algorithmId;  // one that suits the key
};

// Writes a signed package to an empty file: a manifest and one stored entry of `size` bytes, less
// than 4 GiB, that look random. The package is built in the file, so memory does not grow with it.
// Throws std::system_error when writing fails.
void WriteBigPackage(int fd, uint64_t size, const BigSignature& signature);

// The same with a hole of `size` bytes in place of that entry, so that it takes no room on a disk.
void WriteHollowPackage(int fd, uint64_t size, const BigSignature& signature);

// Writes the package of WriteBigPackage to an anonymous file in memory.
Fd BigPackage(uint64_t size, const BigSignature& signature);

}  // namespace Quill
