// SPDX-License-Identifier: Apache-2.0

#include <quillon/base64.h>

#include "fuzz/fuzzing.h"

using Quill::ByteVector;
using Quill::Require;

namespace {

// Decodes into a block of exactly `capacity` bytes. Returns nothing if `text` does not decode.
ByteVector Decode(const std::string& text, size_t capacity, int& result) {
  ByteVector bytes(capacity);
  size_t length = capacity;
  result = base64decode(text.data(), text.size(), bytes.data(), &length);
  Require(length <= capacity, "the length stays within the capacity");
  bytes.resize(result == 0 ? length : 0);
  return bytes;
}

void CheckEncode(const ByteVector& bytes) {
  std::string text(base64encode_len(bytes.size()), '?');
  Require(base64encode(bytes.data(), bytes.size(), text.data(), text.size()) == 0,
          "the length that is asked for is enough");
  Require(text.back() == '\0', "the text is terminated");
  text.pop_back();
  Require(base64encode(bytes.data(), bytes.size(), text.data(), text.size()) == 1,
          "one character less is not");
  Require(Base64Decode(text) == bytes, "what was encoded decodes to itself");

  const std::string sameText = Base64Encode(bytes);
  Require(sameText.empty() || sameText == text, "both encoders agree");
}

void CheckDecode(const std::string& text) {
  int result;
  const ByteVector bytes = Decode(text, text.size(), result);
  Require(Base64Decode(text) == bytes, "both decoders agree");
  if (result != 0) return;
  Require(Decode(text, bytes.size(), result) == bytes && result == 0, "the exact room is enough");
  if (!bytes.empty()) {
    Decode(text, bytes.size() - 1, result);
    Require(result == 1, "one byte less is not");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CheckEncode({data, data + size});
  CheckDecode({data, data + size});
  return 0;
}
