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

// Writes a signed package to an empty file: a manifest and one stored entry of `size` bytes that
// look random, less than 4 GiB. The package is made in the file, so memory does not grow with it.
// Throws what the standard library throws when the file does not take it.
void WriteBigPackage(int fd, uint64_t size, const BigSignature& signature);

// The same in an anonymous file in memory.
Fd BigPackage(uint64_t size, const BigSignature& signature);

}  // namespace Quill
