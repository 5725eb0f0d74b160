// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <iomanip>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/wire.h"

namespace Quill {

// Returns the parts of a text between separators; none of an empty text.
inline std::vector<std::string> Split(std::string text, const std::string& separator) {
  std::vector<std::string> parts;
  for (text += text.empty() ? "" : separator; !text.empty();) {
    parts.push_back(text.substr(0, text.find(separator)));
    text.erase(0, parts.back().size() + separator.size());
  }
  return parts;
}

// Returns the bytes that a text describes by its words: 7:4 is the number 7 in four bytes, the
// lowest first, [ and ] stand around what follows its 32-bit length, a name stands for its bytes in
// `names`, and other words, or several between quotes, for themselves.
inline ByteVector Bytes(const std::string& text,
                        const std::map<std::string, ByteVector>& names = {}) {
  ByteVector bytes;
  std::vector<size_t> starts;
  std::istringstream words(text);
  for (std::string word; words >> std::quoted(word);) {
    const size_t colon = word.find(':');
    if (word == "]") {
      Put(bytes, starts.back(), Wire().U32(bytes.size() - starts.back() - 4));
      starts.pop_back();
    } else if (word == "[") {
      starts.push_back(bytes.size());
      bytes.resize(bytes.size() + 4);
    } else if (colon != std::string::npos) {
      ByteVector number = Wire().U64(std::stoull(word, nullptr, 0));
      number.resize(std::stoul(word.substr(colon + 1)));
      bytes.insert(bytes.end(), number.begin(), number.end());
    } else {
      const auto name = names.find(word);
      const ByteVector value = name != names.end() ? name->second : Wire().Text(word);
      bytes.insert(bytes.end(), value.begin(), value.end());
    }
  }
  return bytes;
}

}  // namespace Quill
