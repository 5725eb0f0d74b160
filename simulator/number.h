// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace tarnsim {

// Parses a number that is the whole text: no sign for an unsigned one, no blanks, nothing behind
// it. Returns nullopt for other texts, and when the number does not fit.
template <typename Number>
[[nodiscard]] std::optional<Number> ParseNumber(std::string_view text, int base) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// The same for hexadecimal digits, which may follow "0x".
template <typename Number>
[[nodiscard]] std::optional<Number> ParseHex(std::string_view text) {
  return ParseNumber<Number>(text.substr(0, 2) == "0x" ? text.substr(2) : text, 16);
}

}  // namespace tarnsim
