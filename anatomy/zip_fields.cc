// SPDX-License-Identifier: Apache-2.0

#include "anatomy/zip_fields.h"

#include <cstring>
#include <string>
#include <utility>

#include "anatomy/zip_records.h"
#include "signing_block/zip_format.h"

namespace Quill::Anatomy {
namespace {

struct RecordField {
  const char* name;
  uint8_t size;
  Shape shape;
};

// In the local header and in the central record, behind what they start with.
constexpr RecordField kEntry[] = {
    {"versionNeeded", 2, Shape::kNumber},
    {"flags", 2, Shape::kId},
    {"method", 2, Shape::kMethod},
    {"modified", 4, Shape::kTime},
    {"crc32", 4, Shape::kId},
    {"compressedSize", 4, Shape::kNumber},
    {"uncompressedSize", 4, Shape::kNumber},
    {"nameLength", 2, Shape::kNumber},
    {"extraLength", 2, Shape::kNumber},
};

constexpr RecordField kLocalStart[] = {
    {"signature", 4, Shape::kId},
};

constexpr RecordField kCentralStart[] = {
    {"signature", 4, Shape::kId},
    {"versionMadeBy", 2, Shape::kId},
};

constexpr RecordField kCentralEnd[] = {
    {"commentLength", 2, Shape::kNumber},     {"diskNumber", 2, Shape::kNumber},
    {"internalAttributes", 2, Shape::kId},    {"externalAttributes", 4, Shape::kId},
    {"localHeaderOffset", 4, Shape::kNumber},
};

constexpr RecordField kEndRecord[] = {
    {"signature", 4, Shape::kId},
    {"diskNumber", 2, Shape::kNumber},
    {"directoryDisk", 2, Shape::kNumber},
    {"entriesOnDisk", 2, Shape::kNumber},
    {"entries", 2, Shape::kNumber},
    {"centralDirectorySize", 4, Shape::kNumber},
    {"centralDirectoryOffset", 4, Shape::kNumber},
    {"commentLength", 2, Shape::kNumber},
};

constexpr RecordField kDescriptor[] = {
    {"signature", 4, Shape::kId},
    {"crc32", 4, Shape::kId},
    {"compressedSize", 4, Shape::kNumber},
    {"uncompressedSize", 4, Shape::kNumber},
};

constexpr uint16_t kHasDescriptor = 8;                 // in flags
constexpr uint32_t kDescriptorSignature = 0x08074b50;  // "PK\7\8"

template <size_t count>
constexpr uint64_t SizeOf(const RecordField (&table)[count]) {
  uint64_t size = 0;
  for (const RecordField& field : table) size += field.size;
  return size;
}
static_assert(SizeOf(kEntry) == sizeof(EntryRecord));
static_assert(SizeOf(kLocalStart) + sizeof(EntryRecord) == sizeof(LocalHeaderRecord));
static_assert(SizeOf(kCentralStart) + sizeof(EntryRecord) + SizeOf(kCentralEnd) ==
              sizeof(CentralDirectoryRecord));
static_assert(SizeOf(kEndRecord) == sizeof(EocdRecord));
static_assert(SizeOf(kDescriptor) == 16);

// Appends the fields of a table from its `first` on. The cursor holds them.
template <size_t count>
void TakeTable(const FieldReader& reader, const RecordField (&table)[count], ByteCursor& cursor,
               Field& parent, size_t first = 0) {
  for (size_t i = first; i < count; ++i) {
    reader.TakeBytes(cursor, parent, table[i].name, table[i].size, table[i].shape);
  }
}

// Takes a field of variable length, if it has any bytes. Returns false when it is cut short.
bool TakeVariable(const FieldReader& reader, ByteCursor& cursor, Field& parent, const char* name,
                  uint64_t size, Shape shape) {
  const bool isWhole = size <= cursor.Remaining();
  if (size == 0) return true;
  reader.TakeBytes(cursor, parent, name, size, shape);
  if (!isWhole) parent.fields.back().AddNote("cut short");
  return isWhole;
}

std::string_view TextOf(ByteCursor bytes) {
  return {reinterpret_cast<const char*>(bytes.Data()), bytes.Remaining()};
}

// The size of the descriptor that starts there; its signature may be missing.
uint64_t DescriptorSize(ByteCursor bytes) {
  uint32_t signature = 0;
  const bool isSigned = bytes.TakeU32(signature) && signature == kDescriptorSignature;
  return SizeOf(kDescriptor) - (isSigned ? 0 : sizeof signature);
}

// Fits a field around what was taken for it.
void Enclose(Field& field) {
  field.size = field.fields.empty() ? 0 : field.fields.back().End() - field.offset;
}

// Returns false when name or extra field is cut short.
bool TakeLocalHeader(const FieldReader& reader, ByteCursor& cursor, Field& entry,
                     const EntryRecord& record) {
  Field header = reader.Make("localHeader", ByteCursor(cursor.Data(), 0), Shape::kGroup);
  header.fields.reserve(std::size(kLocalStart) + std::size(kEntry) + (record.nameLength != 0) +
                        (record.extraLength != 0));
  TakeTable(reader, kLocalStart, cursor, header);
  TakeTable(reader, kEntry, cursor, header);
  const bool isWhole =
      TakeVariable(reader, cursor, header, "name", record.nameLength, Shape::kText) &&
      TakeVariable(reader, cursor, header, "extra", record.extraLength, Shape::kBytes);
  Enclose(header);
  reader.Append(entry, std::move(header));
  return isWhole;
}

bool TakeDescriptor(const FieldReader& reader, ByteCursor& cursor, Field& entry) {
  const uint64_t size = DescriptorSize(cursor);
  if (size > cursor.Remaining()) return reader.Fail(cursor, entry, "the descriptor is cut short");
  ByteCursor bytes = cursor.TakeAtMost(size);
  Field descriptor = reader.Make("descriptor", bytes, Shape::kGroup);
  descriptor.fields.reserve(std::size(kDescriptor));
  TakeTable(reader, kDescriptor, bytes, descriptor, size < SizeOf(kDescriptor) ? 1 : 0);
  reader.Append(entry, std::move(descriptor));
  return true;
}

}  // namespace

bool TakeCentralRecord(const FieldReader& reader, ByteCursor& cursor, Field& parent, int32_t index,
                       CentralRecord& out) {
  if (reader.Budget().IsSpent()) {
    return reader.Fail(cursor, parent, kTooManyFields);
  }
  if (cursor.Remaining() < sizeof(CentralDirectoryRecord)) {
    return reader.Fail(cursor, parent, "a record is cut short");
  }
  const auto record = CopyRecord<CentralDirectoryRecord>(cursor.Data());
  if (record.signature != CentralDirectory::kSignature) {
    return reader.Fail(cursor, parent, "no record of the central directory");
  }
  const EntryRecord& entry = record.entry;
  const uint64_t size = sizeof record + entry.nameLength + entry.extraLength + record.commentLength;
  if (size > cursor.Remaining()) return reader.Fail(cursor, parent, "a record is cut short");
  ByteCursor bytes = cursor.TakeAtMost(size);
  Field field = reader.Make("", bytes, Shape::kGroup, index);
  field.fields.reserve(std::size(kCentralStart) + std::size(kEntry) + std::size(kCentralEnd) +
                       (entry.nameLength != 0) + (entry.extraLength != 0) +
                       (record.commentLength != 0));
  TakeTable(reader, kCentralStart, bytes, field);
  TakeTable(reader, kEntry, bytes, field);
  TakeTable(reader, kCentralEnd, bytes, field);
  out = {entry.flags, DataSizeOf(entry), record.localHeaderOffset,
         TextOf(ByteCursor(bytes.Data(), entry.nameLength))};
  static_cast<void>(
      TakeVariable(reader, bytes, field, "name", entry.nameLength, Shape::kText) &&
      TakeVariable(reader, bytes, field, "extra", entry.extraLength, Shape::kBytes) &&
      TakeVariable(reader, bytes, field, "comment", record.commentLength, Shape::kText));
  reader.Append(parent, std::move(field));
  return true;
}

Field TakeEndRecord(const FieldReader& reader, ByteCursor& cursor) {
  ByteCursor bytes = cursor.TakeAtMost(sizeof(EocdRecord));
  Field record = reader.Make("endRecord", bytes, Shape::kGroup);
  TakeTable(reader, kEndRecord, bytes, record);
  return record;
}

bool IsLocalHeader(ByteCursor bytes) {
  uint32_t signature;
  return bytes.TakeU32(signature) && signature == LocalHeaderRecord::kSignature;
}

Field TakeEntry(const FieldReader& reader, ByteCursor& cursor, int32_t index,
                const LocalEntry* known) {
  Field entry = reader.Make("entries", ByteCursor(cursor.Data(), 0), Shape::kGroup, index);
  if (!IsLocalHeader(cursor) || cursor.Remaining() < sizeof(LocalHeaderRecord)) {
    entry.AddNote("no local header at " + std::to_string(entry.offset));
    return entry;
  }
  const EntryRecord record = CopyRecord<LocalHeaderRecord>(cursor.Data()).entry;
  LocalEntry data;
  if (known != nullptr) {
    data = *known;
  } else if ((record.flags & kHasDescriptor) == 0 || record.compressedSize != 0) {
    data = {DataSizeOf(record), (record.flags & kHasDescriptor) != 0};
  } else {
    entry.AddNote("its size stands behind its data, whose end is not known without it");
  }
  entry.fields.reserve(3);
  static_cast<void>(TakeLocalHeader(reader, cursor, entry, record) &&
                    TakeVariable(reader, cursor, entry, "data", data.dataSize, Shape::kBytes) &&
                    data.hasDescriptor && TakeDescriptor(reader, cursor, entry));
  Enclose(entry);
  return entry;
}

}  // namespace Quill::Anatomy
