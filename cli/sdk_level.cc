// SPDX-License-Identifier: Apache-2.0

#include "cli/sdk_level.h"

#include <fmt/format.h>

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <quillon/system.h>

#include "cli/output.h"

namespace Quill::Tool {

namespace {

std::optional<uint32_t> ParseLevel(std::string_view text) {
  uint32_t level = 0;
  const char* const behind = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), behind, level);
  if (error != std::errc() || end != behind || level > kMostSdkLevel) return std::nullopt;
  return level;
}

}  // namespace

std::optional<SdkRange> ParseSdkLevels(std::string_view text) {
  const size_t dash = text.find('-');
  const std::optional<uint32_t> min = ParseLevel(text.substr(0, dash));
  const std::optional<uint32_t> max =
      dash == std::string_view::npos ? min : ParseLevel(text.substr(dash + 1));
  if (!min || !max || *min > *max) return std::nullopt;
  return SdkRange{*min, *max};
}

bool IsSdkLevelUsable() {
  const char* text = std::getenv("QUILLON_SDK");
  if (text == nullptr || ParseLevel(text)) return true;
  PrintDiagnostic(fmt::format(
      "QUILLON_SDK is \"{}\", which is no SDK level: set it to a number such as 30, or unset it",
      text));
  return false;
}

uint32_t CurrentSdkLevel() {
  int level = 0;
  return GetVersionSDK(level) ? static_cast<uint32_t>(level) : 0;
}

bool SetSdkLevel(uint32_t level) {
  setenv("QUILLON_SDK", std::to_string(level).c_str(), /*overwrite=*/1);
  return CurrentSdkLevel() == level;
}

}  // namespace Quill::Tool
