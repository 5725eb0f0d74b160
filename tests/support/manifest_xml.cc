// SPDX-License-Identifier: Apache-2.0

#include "tests/support/manifest_xml.h"

#include <map>

namespace Quill {

ByteVector BinaryXml(const std::vector<XmlElement>& elements, bool isUtf8) {
  constexpr uint32_t kNone = 0xffffffff;
  // The pool holds each string once; the document names strings by their index.
  std::map<std::string, size_t> pool;
  Wire offsets, strings, nodes;
  const auto index = [&](const std::string& text) {
    const auto [found, isNew] = pool.try_emplace(text, pool.size());
    if (isNew) {
      offsets.U32(strings.Size());
      const auto character = [&](size_t c) {
        isUtf8 ? strings.U8(static_cast<uint8_t>(c)) : strings.U16(static_cast<uint16_t>(c));
      };
      if (isUtf8) character(text.size());  // one length in characters and one in bytes
      character(text.size());
      for (const char c : text) character(static_cast<uint8_t>(c));
      character(0);
    }
    return found->second;
  };
  // A node's chunk: type, line and comment, the element's name, the rest.
  const auto node = [&](uint16_t type, const std::string& name, const ByteVector& rest) {
    nodes.U16(type).U16(16).U32(24 + rest.size()).U32(1).U32(kNone).U32(kNone).U32(index(name));
    nodes.Bytes(rest);
  };

  for (const XmlElement& element : elements) {
    const auto count = static_cast<uint16_t>(element.attributes.size());
    Wire start = Wire().U16(20).U16(20).U16(count).Fill(6);
    for (const auto& [name, value] : element.attributes) {
      const auto* text = std::get_if<std::string>(&value);
      const size_t data = text ? index(*text) : std::get<uint32_t>(value);
      start.U32(kNone).U32(index(name)).U32(text ? data : kNone);
      start.U16(8).U8(0).U8(text ? 0x03 : 0x10).U32(data);
    }
    node(0x0102, element.name, start);
    if (&element != &elements.front()) node(0x0103, element.name, {});
  }
  node(0x0103, elements.front().name, {});

  strings.Fill((4 - strings.Size() % 4) % 4);
  const size_t stringsStart = 28 + offsets.Size(), poolSize = stringsStart + strings.Size();
  Wire document = Wire().U16(0x0003).U16(8).U32(8 + poolSize + nodes.Size());
  document.U16(0x0001).U16(28).U32(poolSize).U32(pool.size());
  document.U32(0).U32(isUtf8 ? 0x100 : 0).U32(stringsStart).U32(0);  // no styles
  return document.Bytes(offsets).Bytes(strings).Bytes(nodes);
}

ByteVector ManifestXml(const std::string& packageName, bool isHalyx, bool isUtf8) {
  std::vector<XmlElement> elements = {{"manifest", {{"package", packageName}}}};
  const XmlAttribute permission = {"name", "com.vrk.android.SECURE_STORAGE"};
  if (isHalyx) elements.push_back({"uses-permission", {permission}});
  return BinaryXml(elements, isUtf8);
}

}  // namespace Quill
