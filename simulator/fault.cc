// SPDX-License-Identifier: Apache-2.0

#include "simulator/fault.h"

#include <optional>

#include "simulator/number.h"
#include "util/errno_name.h"

namespace tarnsim {
namespace {

constexpr int kLargestErrno = 4095;  // what a system call can return

std::optional<int> ParseErrno(std::string_view text) {
  if (const std::optional<int> named = Quill::ErrnoByName(text)) return named;
  const std::optional<int> number = ParseNumber<int>(text, 10);
  return number && *number >= 0 && *number <= kLargestErrno ? number : std::nullopt;
}

std::optional<int> ParseResult(std::string_view text) {
  if (text.substr(0, 2) != "0x") return ParseNumber<int>(text, 10);
  const std::optional<uint32_t> bits = ParseHex<uint32_t>(text);
  return bits ? std::optional(static_cast<int>(*bits)) : std::nullopt;
}

}  // namespace

std::string ParseFault(std::string_view text, Fault& fault) {
  const std::vector<std::string> parts = SplitSetting(text, ':');
  if (parts.size() < 3 || parts.size() > 4)
    return "it is not REQUEST:N:ERRNO or REQUEST:N:ERRNO:RESULT";
  if (!CallByName(parts[0], fault.call)) return "there is no request \"" + parts[0] + "\"";
  const std::optional<int> nth = ParseNumber<int>(parts[1], 10);
  if (!nth || *nth < 0) return "N is no number from 0 to 2147483647";
  const std::optional<int> error = ParseErrno(parts[2]);
  if (!error) return "ERRNO is no name such as EIO and no number from 0 to 4095";
  std::optional<int> result = -1;
  if (parts.size() == 4) result = ParseResult(parts[3]);
  if (!result) return "RESULT is no 32-bit number";
  if (fault.call == Call::kOpen && (*error == 0 || parts.size() == 4)) {
    return "a refused open has an ERRNO other than 0 and no RESULT";
  }
  fault.nth = *nth;
  fault.error = *error;
  fault.result = *result;
  return "";
}

std::vector<std::string> SplitSetting(std::string_view text, char delimiter) {
  std::vector<std::string> pieces;
  for (;;) {
    const size_t end = text.find(delimiter);
    pieces.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

}  // namespace tarnsim
