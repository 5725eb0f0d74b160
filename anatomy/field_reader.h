// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "anatomy/field.h"
#include "util/byte_cursor.h"

namespace Quill::Anatomy {

// The note where the budget ends the reading.
inline constexpr char kTooManyFields[] = "there are too many fields to show";

// How many more fields a tree may have. It bounds memory and time for a file whose items are tiny;
// the archive with the most entries has a bit more than half of them.
class FieldBudget {
 public:
  bool IsSpent() const { return spent_ >= kMost; }
  void Spend() { ++spent_; }

 private:
  static constexpr size_t kMost = size_t{1} << 22;
  size_t spent_ = 0;
};

// Makes fields of ranges of bytes: of a file, or of an extracted entry.
//
// A function that takes a field moves the cursor behind it and appends it to `parent`. When it does
// not fit, the rest of the cursor becomes one field "unread" with a note, and the function returns
// false. So each byte of a cursor that is taken to its end is in one field.
class FieldReader {
 public:
  // `bytes` are the whole file or entry. They and the budget are borrowed.
  FieldReader(ByteCursor bytes, FieldBudget& budget) : bytes_(bytes), budget_(budget) {}

  ByteCursor Bytes() const { return bytes_; }
  FieldBudget& Budget() const { return budget_; }
  uint64_t OffsetOf(const uint8_t* position) const {
    return static_cast<uint64_t>(position - bytes_.Data());
  }

  // Returns a field of those bytes without appending it.
  [[nodiscard]] Field Make(const char* name, ByteCursor bytes, Shape shape,
                           int32_t index = -1) const;
  // Appends `field`, and returns the place where it is now.
  Field& Append(Field& parent, Field field) const;

  // Takes as many bytes, or those that are left.
  void TakeBytes(ByteCursor& cursor, Field& parent, const char* name, uint64_t size, Shape shape,
                 int32_t index = -1) const;
  [[nodiscard]] bool TakeU32(ByteCursor& cursor, Field& parent, const char* name, Shape shape,
                             uint32_t& out) const;
  [[nodiscard]] bool TakeU64(ByteCursor& cursor, Field& parent, const char* name, Shape shape,
                             uint64_t& out) const;
  // Takes a 32-bit length and that many bytes, and appends a group with the length in it. `body`
  // covers the bytes behind it, which the caller takes into that group.
  [[nodiscard]] Field* TakeItem(ByteCursor& cursor, Field& parent, const char* name, int32_t index,
                                ByteCursor& body) const;
  // The same, but the bytes that there are will do.
  [[nodiscard]] Field* TakeItemAtMost(ByteCursor& cursor, Field& parent, const char* name,
                                      int32_t index, ByteCursor& body, bool& isWhole) const;

  // Takes what is left as a field; nothing when nothing is left.
  void TakeRest(ByteCursor& cursor, Field& parent, const char* name,
                const std::string& note = "") const;
  // Takes what is left as the field "unread". When nothing is left, `parent` gets the note. Returns
  // false.
  [[nodiscard]] bool Fail(ByteCursor& cursor, Field& parent, const std::string& note = "") const;

 private:
  Field& AppendItem(ByteCursor& cursor, Field& parent, const char* name, int32_t index,
                    ByteCursor body) const;

  ByteCursor bytes_;
  FieldBudget& budget_;
};

}  // namespace Quill::Anatomy
