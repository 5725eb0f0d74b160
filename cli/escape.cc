#include "cli/escape.h"

#include <fmt/format.h>

#include <cstdint>
#include <iterator>

namespace Quill::Tool {
namespace {

struct Character {
  uint32_t codePoint;
  size_t length;  // bytes; 0 when they are not well-formed UTF-8
};

// The character that a non-empty text starts with.
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

bool SteersTerminal(uint32_t codePoint) {
  return codePoint < 0x20 || (codePoint >= 0x7f && codePoint < 0xa0) ||
         (codePoint >= 0x202a && codePoint <= 0x202e) ||
         (codePoint >= 0x2066 && codePoint <= 0x2069);
}

template <typename IsEscaped>
std::string Escape(std::string_view text, IsEscaped isEscaped) {
  std::string escaped;
  while (!text.empty()) {
    auto [codePoint, length] = FirstCharacter(text);
    if (length == 0) {
      length = 1;
      fmt::format_to(std::back_inserter(escaped), "\\x{:02x}", static_cast<uint8_t>(text[0]));
    } else if (!isEscaped(codePoint)) {
      escaped += text.substr(0, length);
    } else if (codePoint < 0x80) {
      fmt::format_to(std::back_inserter(escaped), "\\x{:02x}", codePoint);
    } else {
      fmt::format_to(std::back_inserter(escaped), "\\u{{{:x}}}", codePoint);
    }
    text.remove_prefix(length);
  }
  return escaped;
}

}  // namespace

std::string EscapeInvalidUtf8(std::string_view text) {
  return Escape(text, [](uint32_t) { return false; });
}

std::string EscapeForTerminal(std::string_view text) { return Escape(text, SteersTerminal); }

}  // namespace Quill::Tool
