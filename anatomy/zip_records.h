// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstdint>

// The records of a ZIP archive that the verifier does not read. signing_block/zip_format.h has the
// others, and says how to read them.

namespace Quill::Anatomy {

// What the local header and the central record of an entry both say.
struct __attribute__((packed)) EntryRecord {
  uint16_t versionNeeded, flags, method;
  uint32_t modified, crc32, compressedSize, uncompressedSize;
  uint16_t nameLength, extraLength;
};

// APPNOTE 4.3.7, without name and extra field.
struct __attribute__((packed)) LocalHeaderRecord {
  static constexpr uint32_t kSignature = 0x04034b50;  // "PK\3\4"
  uint32_t signature;
  EntryRecord entry;
};
static_assert(sizeof(LocalHeaderRecord) == 30);

// APPNOTE 4.3.12, without name, extra field and comment.
struct __attribute__((packed)) CentralDirectoryRecord {
  uint32_t signature;
  uint16_t versionMadeBy;
  EntryRecord entry;
  uint16_t commentLength, diskNumber, internalAttributes;
  uint32_t externalAttributes, localHeaderOffset;
};
static_assert(sizeof(CentralDirectoryRecord) == 46);

// Returns how many bytes of the archive a reader may take as the data of an entry. Of one that is
// stored (method 0), the archive library reads the uncompressed size, and does not compare the two.
[[nodiscard]] inline uint64_t DataSizeOf(uint16_t method, uint64_t compressedSize,
                                         uint64_t uncompressedSize) {
  return method == 0 ? std::max(compressedSize, uncompressedSize) : compressedSize;
}
[[nodiscard]] inline uint64_t DataSizeOf(const EntryRecord& entry) {
  return DataSizeOf(entry.method, entry.compressedSize, entry.uncompressedSize);
}

}  // namespace Quill::Anatomy
