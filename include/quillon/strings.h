// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <quillon/export.h>

// The pieces of `text` between delimiters, in order, untrimmed, empty ones included. A trailing
// delimiter adds no empty last piece; an empty text has no pieces.
QUILLON_EXPORT std::vector<std::string> SplitString(const std::string& text, char delimiter);

// The bytes of `text`.
QUILLON_EXPORT std::vector<uint8_t> StringToVector(const std::string& text);
