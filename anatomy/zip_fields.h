// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string_view>

#include "anatomy/field.h"
#include "anatomy/field_reader.h"

// The records of a ZIP archive, field by field. The verifier reads none of them but the end record:
// the archive library does.

namespace Quill::Anatomy {

// What a record of the central directory says that others need.
struct CentralRecord {
  uint16_t flags = 0;
  uint64_t compressedSize = 0;
  uint64_t localHeaderOffset = 0;
  std::string_view name;  // borrowed from the file
};

// Take one record off a cursor, as a field below `parent`. They return false when it is no such
// record, or is cut short: then the rest of the cursor is "unread".
[[nodiscard]] bool TakeCentralRecord(const FieldReader& reader, ByteCursor& cursor, Field& parent,
                                     int32_t index, CentralRecord& out);
// The end record without its comment, whose length it returns.
[[nodiscard]] bool TakeEndRecord(const FieldReader& reader, ByteCursor& cursor, Field& parent,
                                 uint16_t& commentLength);

// What stands behind a local header.
struct LocalEntry {
  uint64_t dataSize = 0;       // of the compressed data
  bool hasDescriptor = false;  // behind the data
  std::string_view note;       // for the entry; empty: none
};

// Returns the entry that starts where `cursor` does, and takes its bytes: the header with name and
// extra field, the data, and the descriptor if it has one. `size` chooses the data's size from what
// the header says of it and whether a descriptor follows. Bytes that are no local header, or a
// header that is cut short, are a field "unread", and nothing is taken behind it.
[[nodiscard]] Field TakeEntry(const FieldReader& reader, ByteCursor& cursor, int32_t index,
                              const LocalEntry* known);

// Returns true when a local header starts there.
[[nodiscard]] bool IsLocalHeader(ByteCursor bytes);

}  // namespace Quill::Anatomy
