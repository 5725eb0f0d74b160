// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Quill {

[[nodiscard]] inline bool StartsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

[[nodiscard]] inline bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// Returns the bytes as lowercase hexadecimal digits, two for each.
[[nodiscard]] std::string ToHex(const uint8_t* data, size_t size);

// Returns a range of SDK levels for people, such as "28", "24-27" or "28 and later".
[[nodiscard]] std::string SdkRangeText(uint32_t min, uint32_t max);

}  // namespace Quill
