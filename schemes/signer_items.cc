// SPDX-License-Identifier: Apache-2.0

#include "schemes/signer_items.h"

#include <cstring>
#include <utility>

namespace Quill {
namespace {

template <typename Record>
bool ParseAlgorithmItem(ByteCursor item, Record& out) {
  uint32_t id;
  uint32_t valueLength;
  if (!item.TakeU32(id) || !item.TakeU32(valueLength) || item.Remaining() != valueLength) {
    return false;
  }
  out = {id, item.ToVector()};
  return true;
}

// Calls `parse` for every item of a sequence: with its body, with the bytes behind it in the
// sequence, and with the record to fill.
template <typename Record, typename Parse>
bool ParseEach(ByteCursor items, std::vector<Record>& out, Parse parse) {
  while (items.Remaining() != 0) {
    ByteCursor item;
    Record record;
    if (!items.TakeLengthValue(item) || !parse(item, items.Remaining(), record)) return false;
    out.push_back(std::move(record));
  }
  return true;
}

template <typename Record>
bool ParseAlgorithmSequence(ByteCursor items, std::vector<Record>& out) {
  return ParseEach(items, out, [](ByteCursor item, uint64_t, Record& record) {
    return ParseAlgorithmItem(item, record);
  });
}

}  // namespace

ByteCursor ItemBody(const LengthValueItem* item) {
  uint32_t length;
  std::memcpy(&length, item, sizeof length);
  return {item + 1, length};
}

bool TakeItemAtMost(ByteCursor& cursor, ByteCursor& out) {
  uint32_t length = 0;
  const bool hasLength = cursor.TakeU32(length);
  if (!hasLength) cursor = {};
  out = cursor.TakeAtMost(length);
  return hasLength && out.Remaining() == length;
}

bool ParseItem(ByteCursor item, Digest& out) { return ParseAlgorithmItem(item, out); }

bool ParseItem(ByteCursor item, Signature& out) { return ParseAlgorithmItem(item, out); }

void ParseItem(ByteCursor item, uint64_t behind, Attribute& out) {
  // The stored value is as long as the whole item, so it ends 4 bytes past the item's end.
  ByteCursor source(item.Data(), item.Remaining() + behind);
  const ByteCursor id = source.TakeAtMost(sizeof out.id);
  out.id = 0;
  if (id.Remaining() != 0) std::memcpy(&out.id, id.Data(), id.Remaining());
  out.value = source.TakeAtMost(item.Remaining()).ToVector();
  out.value.resize(item.Remaining());
}

bool ParseSequence(ByteCursor items, std::vector<Digest>& out) {
  return ParseAlgorithmSequence(items, out);
}

bool ParseSequence(ByteCursor items, std::vector<Signature>& out) {
  return ParseAlgorithmSequence(items, out);
}

bool ParseSequence(ByteCursor items, std::vector<std::vector<uint8_t>>& out) {
  return ParseEach(items, out, [](ByteCursor item, uint64_t, std::vector<uint8_t>& der) {
    der = item.ToVector();
    return true;
  });
}

bool ParseSequence(ByteCursor items, uint64_t following, std::vector<Attribute>& out) {
  return ParseEach(items, out, [following](ByteCursor item, uint64_t behind, Attribute& attribute) {
    ParseItem(item, behind + following, attribute);
    return true;
  });
}

}  // namespace Quill
