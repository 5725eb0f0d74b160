// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// The records of a package file around the APK Signing Block, and those in it. All integers are
// little-endian, and none is aligned. Copy a record and use the copy, because the file may change
// while it is mapped; bind no reference to a field.

namespace Quill {

// End of Central Directory record without its comment (APPNOTE 4.3.16).
struct __attribute__((packed)) EocdRecord {
  static constexpr uint32_t kSignature = 0x06054b50;  // "PK\5\6"
  uint32_t signature;
  uint8_t diskFields[8];            // disk numbers and record counts, not read
  uint32_t centralDirectorySize;    // bytes
  uint32_t centralDirectoryOffset;  // bytes from the start of the file
  uint16_t commentLength;           // bytes that follow this record
};
static_assert(sizeof(EocdRecord) == 22);

// The first field of a central directory file header (APPNOTE 4.3.12). No other field is read.
struct __attribute__((packed)) CentralDirectory {
  static constexpr uint32_t kSignature = 0x02014b50;  // "PK\1\2"
  uint32_t signature;
};
static_assert(sizeof(CentralDirectory) == 4);

// APK Signing Block, which ends where the central directory starts: this record, the ID-value pairs
// (size - 24 bytes) and the footer.
struct __attribute__((packed)) ApkSigningBlock {
  uint64_t size;  // bytes that follow this field
};
static_assert(sizeof(ApkSigningBlock) == 8);

struct __attribute__((packed)) ApkSigningBlockFooter {
  static constexpr char kMagic[] = "APK Sig Block 42";
  static constexpr size_t kMagicSize = sizeof kMagic - 1;  // bytes on disk, without the zero
  uint64_t size;                                           // equal to ApkSigningBlock::size
  char magic[kMagicSize];
};
static_assert(sizeof(ApkSigningBlockFooter) == 24);
static_assert(sizeof ApkSigningBlockFooter::kMagic == 17);

// ID-value pair of the APK Signing Block; the value, length - 4 bytes, follows this record.
struct __attribute__((packed)) ApkSignatureBlock {
  static constexpr uint32_t kSchemeV2Id = 0x7109871a;
  static constexpr uint32_t kSchemeV3Id = 0xf05368c0;
  uint64_t length;  // bytes that follow this field: ID and value
  uint32_t id;
};
static_assert(sizeof(ApkSignatureBlock) == 12);

// Returns a copy of the record at `position`, all of which must be readable.
template <typename Record>
[[nodiscard]] Record CopyRecord(const void* position) {
  Record record;
  std::memcpy(&record, position, sizeof record);
  return record;
}

}  // namespace Quill
