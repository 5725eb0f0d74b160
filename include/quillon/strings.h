// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <quillon/export.h>

// Returns the pieces of `text` between delimiters, in order, untrimmed, empty ones included. A
// trailing delimiter adds no empty last piece. An empty text has no pieces.
[[nodiscard]] QUILLON_EXPORT std::vector<std::string> SplitString(const std::string& text,
                                                                  char delimiter);

// Returns the bytes of `text`.
[[nodiscard]] QUILLON_EXPORT std::vector<uint8_t> StringToVector(const std::string& text);
