// SPDX-License-Identifier: Apache-2.0

#include "fuzz/der_mutator.h"

#include "util/byte_cursor.h"

namespace Quill {
namespace {

constexpr uint8_t kConstructed = 0x20;
constexpr int kMostLevels = 16;

struct Element {
  uint8_t tag = 0;
  ByteVector content;             // of an element without children
  std::vector<Element> children;  // empty when the content is not DER
};

bool TakeElements(ByteCursor bytes, int levels, std::vector<Element>& out);

bool TakeElement(ByteCursor& from, int levels, Element& out) {
  ByteCursor bytes;
  if (!from.Take(2, bytes)) return false;
  out.tag = bytes.Data()[0];
  uint64_t length = bytes.Data()[1];
  if (length >= 0x80) {
    const uint64_t count = length - 0x80;
    if (count == 0 || count > 4 || !from.Take(count, bytes)) return false;
    length = 0;
    for (size_t i = 0; i < count; ++i) length = length << 8 | bytes.Data()[i];
  }
  if (!from.Take(length, bytes)) return false;
  const bool isParsed = (out.tag & kConstructed) != 0 && bytes.Remaining() != 0 &&
                        TakeElements(bytes, levels - 1, out.children);
  if (!isParsed) {
    out.children.clear();
    out.content = bytes.ToVector();
  }
  return true;
}

bool TakeElements(ByteCursor bytes, int levels, std::vector<Element>& out) {
  if (levels == 0) return false;
  while (bytes.Remaining() != 0) {
    if (!TakeElement(bytes, levels, out.emplace_back())) return false;
  }
  return true;
}

ByteVector Encode(const Element& element) {
  Wire content;
  content.Bytes(element.content);
  for (const Element& child : element.children) content.Bytes(Encode(child));
  const size_t size = content.Size();
  Wire wire;
  wire.U8(element.tag);
  if (size >= 0x100) {
    wire.U8(0x82).U8(static_cast<uint8_t>(size >> 8));
  } else if (size >= 0x80) {
    wire.U8(0x81);
  }
  return wire.U8(static_cast<uint8_t>(size)).Bytes(content);
}

void List(std::vector<Element>& siblings,
          std::vector<std::pair<std::vector<Element>*, size_t>>& out) {
  for (size_t i = 0; i < siblings.size(); ++i) {
    out.emplace_back(&siblings, i);
    List(siblings[i].children, out);
  }
}

void Change(Element& element, Random& random) {
  static constexpr uint8_t kTags[] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x0c, 0x13, 0x17,
                                      0x30, 0x31, 0x80, 0xa0, 0xa1, 0xa3, 0x1f, 0x3f};
  if (random.OneIn(4)) {
    element.tag = random.OneOf(kTags);
  } else if (element.children.empty()) {
    MutateBytes(element.content);
  } else {
    std::swap(random.OneOf(element.children), random.OneOf(element.children));
  }
}

}  // namespace

void MutateDer(ByteVector& der, Random& random) {
  std::vector<Element> top;
  if (der.empty() || !TakeElements(ByteCursor(der), kMostLevels, top) || random.OneIn(16)) {
    MutateBytes(der);
    return;
  }
  std::vector<std::pair<std::vector<Element>*, size_t>> places;
  List(top, places);
  const Element other = [&] {
    const auto& [siblings, index] = random.OneOf(places);
    return (*siblings)[index];
  }();
  const auto& [siblings, index] = random.OneOf(places);
  const auto position = siblings->begin() + static_cast<ptrdiff_t>(index);
  switch (random.Below(8)) {
    case 0:
      siblings->erase(position);
      break;
    case 1:
      siblings->insert(position, Element(*position));
      break;
    case 2:
      siblings->insert(position, other);
      break;
    case 3:
      *position = other;
      break;
    default:
      Change(*position, random);
      break;
  }
  Wire wire;
  for (const Element& element : top) wire.Bytes(Encode(element));
  der = wire;
}

}  // namespace Quill
