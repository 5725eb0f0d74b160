// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "findings/recorder.h"

namespace Quill::Tool {

constexpr uint32_t kMostSdkLevel = 0x7fffffff;

// Parses a decimal number from 0 to kMostSdkLevel, such as 30, or two of them, such as 28-35.
[[nodiscard]] std::optional<SdkRange> ParseSdkLevels(std::string_view text);

// On a workstation the environment variable QUILLON_SDK gives the platform's SDK level. Returns
// true if it is such a number or not set. Otherwise prints a diagnostic and
// returns false; the library cannot verify anything then. Call this before the library.
[[nodiscard]] bool IsSdkLevelUsable();

// Returns the level of QUILLON_SDK, or what the library takes when it is not set.
[[nodiscard]] uint32_t CurrentSdkLevel();
// Sets the level for this process. Returns false on a device, which keeps its own level.
[[nodiscard]] bool SetSdkLevel(uint32_t level);

}  // namespace Quill::Tool
