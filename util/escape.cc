// SPDX-License-Identifier: Apache-2.0

#include "util/escape.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace Quill {
namespace {

struct Character {
  uint32_t codePoint;
  size_t length;  // bytes; 0 when they are not well-formed UTF-8
};

// Returns the character that a non-empty text starts with.
Character FirstCharacter(std::string_view text) {
  constexpr uint32_t kLeastCodePoint[] = {0, 0, 0x80, 0x800, 0x10000};  // by length
  const auto lead = static_cast<uint8_t>(text[0]);
  const size_t length = lead < 0x80           ? 1
                        : (lead >> 5) == 0x06 ? 2
                        : (lead >> 4) == 0x0e ? 3
                        : (lead >> 3) == 0x1e ? 4
                                              : 0;
  if (length < 2) return {lead, length};
  if (text.size() < length) return {};

  uint32_t codePoint = lead & (0x7fU >> length);
  for (const char c : text.substr(1, length - 1)) {
    const auto byte = static_cast<uint8_t>(c);
    if ((byte & 0xc0) != 0x80) return {};
    codePoint = codePoint << 6 | (byte & 0x3f);
  }
  const bool surrogate = codePoint >= 0xd800 && codePoint <= 0xdfff;
  if (codePoint < kLeastCodePoint[length] || codePoint > 0x10ffff || surrogate) return {};
  return {codePoint, length};
}

// Characters that control a terminal, that it does not show, or that reorder what it shows.
struct Range {
  uint32_t first, last;
};
constexpr Range kEscaped[] = {
    {0x00, 0x1f},     {0x7f, 0x9f},     {0xad, 0xad},       {0x34f, 0x34f},     {0x61c, 0x61c},
    {0x115f, 0x1160}, {0x17b4, 0x17b5}, {0x180b, 0x180f},   {0x200b, 0x200f},   {0x2028, 0x202e},
    {0x2060, 0x206f}, {0x2800, 0x2800}, {0x3164, 0x3164},   {0xfe00, 0xfe0f},   {0xfeff, 0xfeff},
    {0xffa0, 0xffa0}, {0xfff0, 0xfffb}, {0x1bca0, 0x1bca3}, {0x1d173, 0x1d17a}, {0xe0000, 0xe0fff},
};

bool IsEscapedForTerminal(uint32_t codePoint) {
  return std::any_of(std::begin(kEscaped), std::end(kEscaped), [codePoint](const Range& range) {
    return range.first <= codePoint && codePoint <= range.last;
  });
}

// Returns the number in hexadecimal, with at least two digits.
std::string Hex(uint32_t number) {
  std::string digits;
  for (; number != 0 || digits.size() < 2; number >>= 4) {
    digits.insert(digits.begin(), "0123456789abcdef"[number & 0xf]);
  }
  return digits;
}

template <typename IsEscaped>
std::string Escape(std::string_view text, IsEscaped isEscaped) {
  std::string escaped;
  while (!text.empty()) {
    auto [codePoint, length] = FirstCharacter(text);
    if (length == 0) {
      length = 1;
      escaped += "\\x" + Hex(static_cast<uint8_t>(text[0]));
    } else if (!isEscaped(codePoint)) {
      escaped += text.substr(0, length);
    } else if (codePoint < 0x80) {
      escaped += "\\x" + Hex(codePoint);
    } else {
      escaped += "\\u{" + Hex(codePoint) + "}";
    }
    text.remove_prefix(length);
  }
  return escaped;
}

}  // namespace

std::string EscapeInvalidUtf8(std::string_view text) {
  return Escape(text, [](uint32_t) { return false; });
}

std::string EscapeForTerminal(std::string_view text) { return Escape(text, IsEscapedForTerminal); }

std::string Quote(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

}  // namespace Quill
