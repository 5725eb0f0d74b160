// SPDX-License-Identifier: Apache-2.0

#include "util/byte_cursor.h"

#include <algorithm>
#include <cstring>

namespace Quill {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "integers are copied as they lie");

bool ByteCursor::Take(uint64_t count, ByteCursor& out) {
  if (count > remaining_) return false;
  out = ByteCursor(data_, count);
  data_ += count;
  remaining_ -= count;
  return true;
}

ByteCursor ByteCursor::TakeAtMost(uint64_t count) {
  ByteCursor taken;
  Take(std::min(count, remaining_), taken);
  return taken;
}

bool ByteCursor::TakeU32(uint32_t& out) {
  ByteCursor bytes;
  if (!Take(sizeof out, bytes)) return false;
  std::memcpy(&out, bytes.data_, sizeof out);
  return true;
}

bool ByteCursor::TakeU64(uint64_t& out) {
  ByteCursor bytes;
  if (!Take(sizeof out, bytes)) return false;
  std::memcpy(&out, bytes.data_, sizeof out);
  return true;
}

bool ByteCursor::TakeLengthValue(ByteCursor& out) {
  ByteCursor ahead = *this;
  uint32_t length;
  if (!ahead.TakeU32(length) || !ahead.Take(length, out)) return false;
  *this = ahead;
  return true;
}

}  // namespace Quill
