// SPDX-License-Identifier: Apache-2.0

#include "cli/sdk_level.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdint>
#include <cstdlib>

#include "cli/output.h"

namespace Quill::Tool {

bool IsSdkLevel(std::string_view text) {
  int32_t level = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), level);
  return error == std::errc() && end == text.data() + text.size() && level >= 0;
}

bool IsSdkLevelUsable() {
  const char* text = std::getenv("QUILLON_SDK");
  if (text == nullptr || IsSdkLevel(text)) return true;
  PrintDiagnostic(fmt::format(
      "QUILLON_SDK is \"{}\", which is no SDK level: set it to a number such as 30, or unset it",
      text));
  return false;
}

}  // namespace Quill::Tool
