// SPDX-License-Identifier: Apache-2.0

#include "anatomy/field_reader.h"

#include <utility>

namespace Quill::Anatomy {
namespace {

constexpr uint64_t kLengthSize = 4;

std::string Shown(const char* name, int32_t index) {
  return name[0] != '\0' ? name : "item " + std::to_string(index);
}

std::string TooLong(const char* name, int32_t index, uint64_t length, uint64_t left) {
  return Shown(name, index) + ": a length of " + std::to_string(length) + " where " +
         std::to_string(left) + " bytes are left";
}

std::string TooShort(const char* name, int32_t index = -1) {
  return Shown(name, index) + " is cut short";
}

}  // namespace

Field FieldReader::Make(const char* name, ByteCursor bytes, Shape shape, int32_t index) const {
  budget_.Spend();
  Field field;
  field.name = name;
  field.index = index;
  field.shape = shape;
  field.offset = OffsetOf(bytes.Data());
  field.size = bytes.Remaining();
  return field;
}

Field& FieldReader::Append(Field& parent, Field field) const {
  parent.fields.push_back(std::move(field));
  return parent.fields.back();
}

void FieldReader::TakeBytes(ByteCursor& cursor, Field& parent, const char* name, uint64_t size,
                            Shape shape, int32_t index) const {
  Append(parent, Make(name, cursor.TakeAtMost(size), shape, index));
}

bool FieldReader::TakeU32(ByteCursor& cursor, Field& parent, const char* name, Shape shape,
                          uint32_t& out) const {
  const ByteCursor start = cursor;
  if (!cursor.TakeU32(out)) return Fail(cursor, parent, TooShort(name));
  Append(parent, Make(name, ByteCursor(start.Data(), sizeof out), shape));
  return true;
}

bool FieldReader::TakeU64(ByteCursor& cursor, Field& parent, const char* name, Shape shape,
                          uint64_t& out) const {
  const ByteCursor start = cursor;
  if (!cursor.TakeU64(out)) return Fail(cursor, parent, TooShort(name));
  Append(parent, Make(name, ByteCursor(start.Data(), sizeof out), shape));
  return true;
}

Field* FieldReader::TakeItem(ByteCursor& cursor, Field& parent, const char* name, int32_t index,
                             ByteCursor& body) const {
  ByteCursor ahead = cursor;
  uint32_t length = 0;
  std::string obstacle;
  if (budget_.IsSpent()) {
    obstacle = kTooManyFields;
  } else if (!ahead.TakeU32(length)) {
    obstacle = TooShort(name, index);
  } else if (length > ahead.Remaining()) {
    obstacle = TooLong(name, index, length, ahead.Remaining());
  }
  if (!obstacle.empty()) {
    static_cast<void>(Fail(cursor, parent, obstacle));
    return nullptr;
  }
  body = ahead.TakeAtMost(length);
  return &AppendItem(cursor, parent, name, index, body);
}

Field* FieldReader::TakeItemAtMost(ByteCursor& cursor, Field& parent, const char* name,
                                   int32_t index, ByteCursor& body, bool& isWhole) const {
  ByteCursor ahead = cursor;
  uint32_t length = 0;
  if (!ahead.TakeU32(length)) {
    isWhole = Fail(cursor, parent, TooShort(name, index));
    return nullptr;
  }
  isWhole = length <= ahead.Remaining();
  body = ahead.TakeAtMost(length);
  Field& field = AppendItem(cursor, parent, name, index, body);
  if (!isWhole) field.AddNote(TooLong(name, index, length, body.Remaining()));
  return &field;
}

Field& FieldReader::AppendItem(ByteCursor& cursor, Field& parent, const char* name, int32_t index,
                               ByteCursor body) const {
  ByteCursor item = cursor.TakeAtMost(kLengthSize + body.Remaining());
  Field& field = Append(parent, Make(name, item, Shape::kGroup, index));
  TakeBytes(item, field, "length", kLengthSize, Shape::kNumber);
  return field;
}

void FieldReader::TakeRest(ByteCursor& cursor, Field& parent, const char* name,
                           const std::string& note) const {
  if (cursor.Remaining() == 0) return;
  Field& field = Append(parent, Make(name, cursor.TakeAtMost(cursor.Remaining()), Shape::kBytes));
  if (!note.empty()) field.AddNote(note);
}

bool FieldReader::Fail(ByteCursor& cursor, Field& parent, const std::string& note) const {
  if (cursor.Remaining() != 0) {
    TakeRest(cursor, parent, "unread", note);
  } else if (!note.empty()) {
    parent.AddNote(note);
  }
  return false;
}

}  // namespace Quill::Anatomy
