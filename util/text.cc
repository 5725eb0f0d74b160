// SPDX-License-Identifier: Apache-2.0

#include "util/text.h"

namespace Quill {

std::string ToHex(const uint8_t* data, size_t size) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string digits;
  digits.reserve(2 * size);
  for (size_t i = 0; i < size; ++i) {
    digits += kDigits[data[i] >> 4];
    digits += kDigits[data[i] & 0xf];
  }
  return digits;
}

std::string SdkRangeText(uint32_t min, uint32_t max) {
  constexpr uint32_t kEveryLater = 0x7fffffff;  // what signing tools write
  std::string first = std::to_string(min);
  if (min == max) return first;
  return max >= kEveryLater ? first + " and later" : first + '-' + std::to_string(max);
}

}  // namespace Quill
