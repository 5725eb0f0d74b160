#include "schemes/signer_items.h"

#include <algorithm>
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
  std::vector<uint8_t> bytes(sizeof out.id + body.Remaining());
  ByteCursor source(body.Data(), body.Remaining() + items.Remaining() + following);
  source = source.TakeAtMost(bytes.size());
  std::copy_n(source.Data(), source.Remaining(), bytes.begin());
  std::memcpy(&out.id, bytes.data(), sizeof out.id);
  out.value.assign(bytes.begin() + sizeof out.id, bytes.end());
  return true;
}

}  // namespace Quill
