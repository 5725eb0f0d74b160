// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quill {

// The one reader of untrusted bytes: a position inside a range that it never leaves. Every getter
// compares the wanted count with the count that is left, in 64 bits; a getter that answers false
// has moved nothing and written nothing. Integers are little-endian.
//
// A nested field is taken as a cursor of its own, over exactly that field's bytes, so that it
// cannot see its neighbours, and "the field must end here" reads `Remaining() == 0`.
//
// The bytes are borrowed and must outlive the cursor.
class ByteCursor {
 public:
  ByteCursor() = default;
  ByteCursor(const void* data, uint64_t length)
      : data_(static_cast<const uint8_t*>(data)), remaining_(length) {}
  explicit ByteCursor(const std::vector<uint8_t>& bytes) : ByteCursor(bytes.data(), bytes.size()) {}

  const uint8_t* Data() const { return data_; }
  uint64_t Remaining() const { return remaining_; }
  std::vector<uint8_t> ToVector() const { return std::vector<uint8_t>(data_, data_ + remaining_); }

  // Takes the next `count` bytes as a cursor of their own.
  bool Take(uint64_t count, ByteCursor& out);
  // As Take, but takes what is there when fewer than `count` bytes are left.
  ByteCursor TakeAtMost(uint64_t count);

  bool TakeU32(uint32_t& out);
  bool TakeU64(uint64_t& out);
  // Takes a 32-bit length and that many bytes; `out` covers the bytes without the length.
  bool TakeLengthValue(ByteCursor& out);

 private:
  const uint8_t* data_ = nullptr;
  uint64_t remaining_ = 0;
};

}  // namespace Quill
