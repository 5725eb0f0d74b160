// SPDX-License-Identifier: Apache-2.0

#include <sstream>

#include <quillon/strings.h>

std::vector<std::string> SplitString(const std::string& text, char delimiter) {
  std::vector<std::string> pieces;
  std::istringstream stream(text);
  for (std::string piece; std::getline(stream, piece, delimiter);) pieces.push_back(piece);
  return pieces;
}

std::vector<uint8_t> StringToVector(const std::string& text) { return {text.begin(), text.end()}; }
