// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>

#include "signing_block/zip_format.h"

namespace Quill::Tool {

// These read through the descriptor, not a mapping, so that a file that shrinks is only a failed
// read.

[[nodiscard]] bool ReadAt(int fd, uint64_t offset, void* out, size_t size);

// Reads the last end record of the archive, whatever the length of its comment. The archive library
// uses the same one. `offset` becomes its place in the file, if it is not null.
[[nodiscard]] bool ReadEndRecord(int fd, EocdRecord& out, uint64_t* offset = nullptr);

// What the central directory says about the APK Signing Block and about itself.
struct DirectoryFacts {
  uint64_t entriesInBlock = 0;  // entries with bytes inside the block
  uint64_t uncounted = 0;       // more entries than the end record counts
};

// Reads the central directory as far as it is whole, and what else is before the end record. The
// signing block may be empty.
[[nodiscard]] DirectoryFacts ReadDirectory(int fd, uint64_t blockOffset, uint64_t blockSize);

}  // namespace Quill::Tool
