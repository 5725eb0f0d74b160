// SPDX-License-Identifier: Apache-2.0

#include <array>
#include <string_view>

#include <quillon/base64.h>
#include <quillon/strings.h>

namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Classes of input bytes, next to the values 0 to 63.
constexpr uint8_t kSkipped = 64;
constexpr uint8_t kEnd = 65;
constexpr uint8_t kInvalid = 66;

constexpr std::array<uint8_t, 256> MakeDecodeTable() {
  std::array<uint8_t, 256> table{};
  for (uint8_t& entry : table) entry = kInvalid;
  table['\0'] = table['\n'] = table['\r'] = kSkipped;
  table['='] = kEnd;
  for (size_t value = 0; value < kAlphabet.size(); ++value) {
    table[static_cast<uint8_t>(kAlphabet[value])] = static_cast<uint8_t>(value);
  }
  return table;
}

constexpr std::array<uint8_t, 256> kDecodeTable = MakeDecodeTable();

// Appends to a buffer of fixed capacity. Put returns false when the buffer is full.
template <typename T>
class BoundedWriter {
 public:
  BoundedWriter(T* out, size_t capacity) : out_(out), capacity_(capacity) {}
  bool Put(T item) {
    if (written_ == capacity_) return false;
    out_[written_++] = item;
    return true;
  }
  bool Fits(size_t count) const { return count <= capacity_ - written_; }
  size_t Written() const { return written_; }

 private:
  T* out_;
  size_t capacity_;
  size_t written_ = 0;
};

}  // namespace

size_t base64encode_len(size_t n) { return (n + 2) / 3 * 4 + 1; }

int base64encode(const unsigned char* in, size_t n, char* out, size_t capacity) {
  BoundedWriter<char> writer(out, capacity);
  for (size_t i = 0; i < n; i += 3) {
    const size_t count = n - i < 3 ? n - i : 3;
    uint32_t bits = 0;
    for (size_t k = 0; k < 3; ++k) bits = bits << 8 | (k < count ? in[i + k] : 0U);
    for (size_t k = 0; k < 4; ++k) {
      const char digit = k <= count ? kAlphabet[bits >> (18 - 6 * k) & 63] : '=';
      if (!writer.Put(digit)) return 1;
    }
  }
  return writer.Put('\0') ? 0 : 1;
}

int base64decode(const char* in, size_t n, unsigned char* out, size_t* outLength) {
  BoundedWriter<unsigned char> writer(out, *outLength);
  uint32_t bits = 0;
  size_t digits = 0;
  for (size_t i = 0; i < n; ++i) {
    const uint8_t value = kDecodeTable[static_cast<uint8_t>(in[i])];
    if (value == kSkipped) continue;
    if (value == kEnd) break;
    if (value == kInvalid) return 1;
    bits = bits << 6 | value;
    if (++digits % 4 != 0) continue;
    if (!writer.Fits(3)) return 1;
    for (const int shift : {16, 8, 0}) writer.Put(static_cast<unsigned char>(bits >> shift));
  }

  // Deliberate: a single digit left over is dropped.
  const size_t left = digits % 4;
  if (left >= 2) {
    bits <<= 6 * (4 - left);
    if (!writer.Fits(left - 1)) return 1;
    writer.Put(static_cast<unsigned char>(bits >> 16));
    if (left == 3) writer.Put(static_cast<unsigned char>(bits >> 8));
  }
  *outLength = writer.Written();
  return 0;
}

std::string Base64Encode(const std::vector<uint8_t>& bytes) {
  // Deliberate: this is too small for 0, 1, 2 and 4 bytes; their result is empty.
  std::string text(2 * bytes.size(), '\0');
  if (base64encode(bytes.data(), bytes.size(), text.data(), text.size()) != 0) return {};
  text.resize(base64encode_len(bytes.size()) - 1);
  return text;
}

std::string Base64Encode(const std::string& bytes) { return Base64Encode(StringToVector(bytes)); }

std::vector<uint8_t> Base64Decode(const std::string& text) {
  std::vector<uint8_t> bytes(text.size());
  size_t length = bytes.size();
  if (base64decode(text.data(), text.size(), bytes.data(), &length) != 0) return {};
  bytes.resize(length);
  return bytes;
}
