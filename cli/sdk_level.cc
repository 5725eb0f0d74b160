// SPDX-License-Identifier: Apache-2.0

#include "cli/sdk_level.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "cli/output.h"

namespace Quill::Tool {

bool IsSdkLevelUsable() {
  const char* variable = std::getenv("QUILLON_SDK");
  if (variable == nullptr) return true;
  const std::string_view text(variable);
  int32_t level = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), level);
  if (error == std::errc() && end == text.data() + text.size() && level >= 0) return true;
  PrintDiagnostic(fmt::format(
      "QUILLON_SDK is \"{}\", which is no SDK level: set it to a number such as 30, or unset it",
      text));
  return false;
}

}  // namespace Quill::Tool
