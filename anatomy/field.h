// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "util/byte_cursor.h"

namespace Quill::Anatomy {

// What the bytes of a field mean.
enum class Shape : uint8_t {
  kGroup,      // the fields below it
  kBytes,      // no more than bytes
  kNumber,     // 2, 4 or 8 bytes, little-endian
  kId,         // the same, shown in hexadecimal
  kText,       // characters in any encoding
  kLine,       // an attribute of a JAR manifest with its line breaks
  kTime,       // of a ZIP entry: time and date, 2 bytes each
  kMethod,     // of compression
  kAlgorithm,  // the ID of a signature algorithm
  kPairId,
  kAttributeId,
  kCertificate,  // DER
  kPublicKey,    // DER
};

struct Decoded;

// What few fields have.
struct Extras {
  std::string note;                  // what is odd about the field
  std::string text;                  // its value, where the bytes alone do not say it
  std::unique_ptr<Decoded> decoded;  // what lies inside a compressed entry
};

// A range of bytes that has a name. The fields below a field tile it: they follow each other in
// order of offset without a gap. A field of size 0 marks a place, for the sake of its note.
//
// A package can have millions of fields, so a field is small, and its value is made from the bytes
// when somebody asks for it.
struct Field {
  const char* name = "";  // a literal
  int32_t index = -1;     // in a list; -1: in none
  Shape shape = Shape::kGroup;
  uint64_t offset = 0;  // from the start of the file, or of the extracted bytes
  uint64_t size = 0;
  std::vector<Field> fields;
  std::unique_ptr<Extras> extras;

  // The name with the index, such as "crc32", "entries[3]" or "[0]".
  std::string Name() const;
  uint64_t End() const { return offset + size; }
  std::string_view Note() const;
  // Adds a note, after those that are there.
  void AddNote(const std::string& note);
  const Decoded* DecodedBytes() const { return extras ? extras->decoded.get() : nullptr; }
  // Returns the first child of that name and index, or null.
  const Field* Child(std::string_view childName, int32_t childIndex = -1) const;
};

// The bytes of an entry without their compression, and the fields in them.
struct Decoded {
  std::vector<uint8_t> bytes;
  Field root;
};

// A number, or text as it stands in the package: of any encoding, with any control character.
using Value = std::variant<uint64_t, std::string>;

// Returns the value of a field of `bytes`, which are the whole file or the whole extracted entry.
// Groups and long bytes have none. Nothing is read outside of `bytes`.
[[nodiscard]] std::optional<Value> ValueOf(const Field& field, ByteCursor bytes);
// The same as text; empty when there is none.
[[nodiscard]] std::string ValueText(const Field& field, ByteCursor bytes);
// Returns the bytes of a field; those of them that there are.
[[nodiscard]] ByteCursor BytesOf(const Field& field, ByteCursor bytes);
// Returns the number in a field of at most eight bytes, little-endian; 0 for longer ones.
[[nodiscard]] uint64_t NumberIn(const Field& field, ByteCursor bytes);

// The names of known IDs; empty for others.
[[nodiscard]] std::string_view PairName(uint32_t id);
[[nodiscard]] std::string_view AlgorithmName(uint32_t id);
[[nodiscard]] std::string_view AttributeName(uint32_t id);

// Where a path has led to.
struct Place {
  const Field* field = nullptr;  // null: nowhere
  const Decoded* in = nullptr;   // the extracted bytes that it lies in; null: the file
};

// Finds a field by its path from the root: names with dots between them, such as
// "signingBlock.v3.signers[0].signedData". What an entry holds stands behind "decoded", as in
// "entries[1].data.decoded.sections[0]". The empty path is the root's.
[[nodiscard]] Place FindPlace(const Field& root, std::string_view path);
[[nodiscard]] const Field* Find(const Field& root, std::string_view path);

// Joins the path of a field with the name of a child.
[[nodiscard]] std::string JoinPath(const std::string& path, const std::string& name);

// Returns true when the fields below each field tile it, also in decoded entries.
[[nodiscard]] bool IsTiled(const Field& field);

}  // namespace Quill::Anatomy
