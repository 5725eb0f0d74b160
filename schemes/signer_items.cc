#include "schemes/signer_items.h"

#include <cstring>

namespace Quill {

const LengthValueItem* TakeItem(ByteCursor& cursor) {
  const auto* item = reinterpret_cast<const LengthValueItem*>(cursor.Data());
  ByteCursor body;
  return cursor.TakeLengthValue(body) ? item : nullptr;
}

ByteCursor ItemBody(const LengthValueItem* item) {
  uint32_t length;
  std::memcpy(&length, item, sizeof length);
  return {item + 1, length};
}

bool TakeCertificate(ByteCursor& items, std::vector<uint8_t>& out) {
  ByteCursor body;
  if (!items.TakeLengthValue(body)) return false;
  out = body.ToVector();
  return true;
}

bool TakeAttributeItem(ByteCursor& items, uint64_t following, Attribute& out) {
  ByteCursor body;
  if (!items.TakeLengthValue(body)) return false;

  // ID and value are read without regard to the item's own end, 4 bytes past it.
  ByteCursor source(body.Data(), body.Remaining() + items.Remaining() + following);
  const ByteCursor id = source.TakeAtMost(sizeof out.id);
  out.id = 0;
  if (id.Remaining() != 0) std::memcpy(&out.id, id.Data(), id.Remaining());
  out.value = source.TakeAtMost(body.Remaining()).ToVector();
  out.value.resize(body.Remaining());
  return true;
}

}  // namespace Quill
