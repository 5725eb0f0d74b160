// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace Quill {

using ByteVector = std::vector<uint8_t>;

// Builds bytes field by field; integers are little-endian.
class Wire {
 public:
  Wire& U8(uint8_t value) { return Number(value, 1); }
  Wire& U16(uint16_t value) { return Number(value, 2); }
  Wire& U32(uint64_t value) { return Number(value, 4); }
  Wire& U64(uint64_t value) { return Number(value, 8); }
  Wire& Fill(size_t count, uint8_t value = 0) { return Bytes(ByteVector(count, value)); }
  Wire& Text(std::string_view text) { return Bytes({text.begin(), text.end()}); }
  Wire& Bytes(const ByteVector& bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
  }
  // Appends a 32-bit length and the bytes.
  Wire& LengthPrefixed(const ByteVector& bytes) { return U32(bytes.size()).Bytes(bytes); }

  size_t Size() const { return bytes_.size(); }
  operator ByteVector() const { return bytes_; }  // NOLINT(google-explicit-constructor)

 private:
  Wire& Number(uint64_t value, size_t size) {
    for (size_t i = 0; i < size; ++i) bytes_.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return *this;
  }

  ByteVector bytes_;
};

// Overwrites the bytes at `offset`.
inline void Put(ByteVector& bytes, size_t offset, const ByteVector& field) {
  std::copy(field.begin(), field.end(), bytes.begin() + static_cast<ptrdiff_t>(offset));
}

}  // namespace Quill
