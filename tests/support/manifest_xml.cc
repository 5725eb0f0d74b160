// SPDX-License-Identifier: Apache-2.0

#include "tests/support/manifest_xml.h"

#include <algorithm>

namespace Quill {
namespace {

constexpr uint32_t kNone = 0xffffffff;

// The pool's strings, each once; the document names them by their index.
class StringPool {
 public:
  uint32_t Index(const std::string& text) {
    const auto found = std::find(strings_.begin(), strings_.end(), text);
    const auto index = static_cast<uint32_t>(found - strings_.begin());
    if (found == strings_.end()) strings_.push_back(text);
    return index;
  }

  ByteVector Chunk() const {
    constexpr uint16_t kHeaderSize = 28;
    Wire offsets;
    Wire data;
    for (const std::string& text : strings_) {
      offsets.U32(data.Size());
      data.U16(static_cast<uint16_t>(text.size()));
      for (char c : text) data.U16(static_cast<uint8_t>(c));
      data.U16(0);
    }
    data.Fill((4 - data.Size() % 4) % 4);
    const size_t start = kHeaderSize + offsets.Size();
    Wire chunk;
    chunk.U16(0x0001).U16(kHeaderSize).U32(start + data.Size()).U32(strings_.size());
    chunk.U32(0).U32(0).U32(start).U32(0);  // no styles, no flags: UTF-16
    return chunk.Bytes(offsets).Bytes(data);
  }

 private:
  std::vector<std::string> strings_;
};

// A node's chunk: type, line and comment, the element's name, the rest.
ByteVector Node(uint16_t type, uint32_t name, const ByteVector& rest) {
  Wire node;
  node.U16(type).U16(16).U32(24 + rest.size()).U32(1).U32(kNone).U32(kNone).U32(name);
  return node.Bytes(rest);
}

ByteVector StartElement(const XmlElement& element, StringPool& pool) {
  Wire attributes;
  for (const XmlAttribute& attribute : element.attributes) {
    const auto* text = std::get_if<std::string>(&attribute.value);
    const uint32_t data = text ? pool.Index(*text) : std::get<uint32_t>(attribute.value);
    attributes.U32(kNone).U32(pool.Index(attribute.name)).U32(text ? data : kNone);
    attributes.U16(8).U8(0).U8(text ? 0x03 : 0x10).U32(data);
  }
  const auto count = static_cast<uint16_t>(element.attributes.size());
  const ByteVector rest = Wire().U16(20).U16(20).U16(count).Fill(6).Bytes(attributes);
  return Node(0x0102, pool.Index(element.name), rest);
}

}  // namespace

ByteVector BinaryXml(const std::vector<XmlElement>& elements) {
  StringPool pool;
  Wire nodes;
  for (const XmlElement& element : elements) {
    nodes.Bytes(StartElement(element, pool));
    if (&element != &elements.front()) nodes.Bytes(Node(0x0103, pool.Index(element.name), {}));
  }
  nodes.Bytes(Node(0x0103, pool.Index(elements.front().name), {}));
  const ByteVector chunk = pool.Chunk();
  return Wire().U16(0x0003).U16(8).U32(8 + chunk.size() + nodes.Size()).Bytes(chunk).Bytes(nodes);
}

ByteVector ManifestXml(const std::string& packageName, std::vector<XmlElement> elements) {
  elements.insert(elements.begin(), {"manifest", {{"package", packageName}}});
  return BinaryXml(elements);
}

}  // namespace Quill
