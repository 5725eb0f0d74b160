// SPDX-License-Identifier: Apache-2.0

#include "schemes/signer_items.h"

#include <cstring>

namespace Quill {

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

bool TakeCertificate(ByteCursor& items, std::vector<uint8_t>& out) {
  ByteCursor body;
  if (!items.TakeLengthValue(body)) return false;
  out = body.ToVector();
  return true;
}

void ReadAttributeItem(ByteCursor item, uint64_t behind, Attribute& out) {
  // ID and value are read without regard to the item's own end, 4 bytes past it.
  ByteCursor source(item.Data(), item.Remaining() + behind);
  const ByteCursor id = source.TakeAtMost(sizeof out.id);
  out.id = 0;
  if (id.Remaining() != 0) std::memcpy(&out.id, id.Data(), id.Remaining());
  out.value = source.TakeAtMost(item.Remaining()).ToVector();
  out.value.resize(item.Remaining());
}

bool TakeAttributeItem(ByteCursor& items, uint64_t following, Attribute& out) {
  ByteCursor item;
  if (!items.TakeLengthValue(item)) return false;
  ReadAttributeItem(item, items.Remaining() + following, out);
  return true;
}

}  // namespace Quill
