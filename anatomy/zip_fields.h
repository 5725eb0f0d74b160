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
  uint64_t dataSize = 0;
  uint64_t localHeaderOffset = 0;
  std::string_view name;  // borrowed from the file
};

// Takes one record off a cursor, as a field below `parent`. Returns false when it is no such
// record, or is cut short: then the rest of the cursor is "unread".
[[nodiscard]] bool TakeCentralRecord(const FieldReader& reader, ByteCursor& cursor, Field& parent,
                                     int32_t index, CentralRecord& out);

// What the archive says of an entry besides its local header.
struct LocalEntry {
  uint64_t dataSize = 0;       // as it is stored in the archive
  bool hasDescriptor = false;  // behind the data
};

// Takes the entry that starts where the cursor does: the header with name and extra field, the
// data, and the descriptor if it has one. Without `known` the header alone decides on data and
// descriptor. An entry without a local header has no bytes, and a note.
[[nodiscard]] Field TakeEntry(const FieldReader& reader, ByteCursor& cursor, int32_t index,
                              const LocalEntry* known);

// Takes the end record, which the cursor holds, without its comment.
[[nodiscard]] Field TakeEndRecord(const FieldReader& reader, ByteCursor& cursor);

// Returns true when a local header starts there.
[[nodiscard]] bool IsLocalHeader(ByteCursor bytes);

}  // namespace Quill::Anatomy
