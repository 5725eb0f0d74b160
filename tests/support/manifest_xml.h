// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "tests/support/wire.h"

namespace Quill {

struct XmlAttribute {
  std::string name;
  std::variant<std::string, uint32_t> value;  // a number is encoded as a decimal integer
};

struct XmlElement {
  std::string name;
  std::vector<XmlAttribute> attributes;
};

// Returns the compiled form of a document without namespaces. The first element encloses the
// others, which are empty and stand side by side. Names and texts are ASCII, in UTF-16 or UTF-8.
ByteVector BinaryXml(const std::vector<XmlElement>& elements, bool isUtf8 = false);

// Returns the compiled manifest of a package, with or without a permission of the Halyx feature.
ByteVector ManifestXml(const std::string& packageName, bool isHalyx = false, bool isUtf8 = false);

}  // namespace Quill
