// SPDX-License-Identifier: Apache-2.0

#include "util/byte_cursor.h"

#include <algorithm>
#include <cstring>

namespace Quill {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "integers are copied without a swap of their bytes");

bool ByteCursor::Take(uint64_t count, ByteCursor& out) {
  if (count > remaining_) return false;
  out = TakeAtMost(count);
  return true;
}

ByteCursor ByteCursor::TakeAtMost(uint64_t count) {
  const ByteCursor taken(data_, std::min(count, remaining_));
  data_ += taken.remaining_;
  remaining_ -= taken.remaining_;
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
