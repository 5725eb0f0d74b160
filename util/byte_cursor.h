// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Quill {

// Reads untrusted bytes: a position in a range that it never leaves. Every Take compares the wanted
// count with the count that is left, in 64 bits. One that returns false has not moved the cursor
// and has not changed its output. Integers are little-endian.
//
// Take a nested field as a cursor over exactly its bytes. That cursor cannot read the neighbours,
// and `Remaining() == 0` checks that the field ends where it must.
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
  [[nodiscard]] bool Take(uint64_t count, ByteCursor& out);
  // Takes the next `count` bytes, or all that are left when they are fewer.
  [[nodiscard]] ByteCursor TakeAtMost(uint64_t count);

  [[nodiscard]] bool TakeU32(uint32_t& out);
  [[nodiscard]] bool TakeU64(uint64_t& out);
  // Takes a 32-bit length and that many bytes; `out` covers the bytes without the length.
  [[nodiscard]] bool TakeLengthValue(ByteCursor& out);

 private:
  const uint8_t* data_ = nullptr;
  uint64_t remaining_ = 0;
};

}  // namespace Quill
