// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "util/byte_cursor.h"

// The length-prefixed items of a signer, and the sequences of them. All integers are little-endian.
// Each length is read once. Nothing here logs. After false a cursor must not be used further.

namespace Quill {

// A 32-bit length and that many bytes. Each sequence in a signer is such an item, and so is each
// element of a sequence. A function that takes a pointer to an item reads the whole item. Package
// bytes are never passed that way: they are passed as cursors, which know where they end.
struct __attribute__((packed)) LengthValueItem {
  uint32_t length;  // bytes that follow
};
static_assert(sizeof(LengthValueItem) == 4);

struct Digest {
  uint32_t algorithmId = 0;  // a signature algorithm ID
  std::vector<uint8_t> value;
};

struct Signature {
  uint32_t algorithmId = 0;
  std::vector<uint8_t> value;
};

struct Attribute {
  uint32_t id = 0;
  // Deliberate: the attribute's own value and the four bytes that follow it in the signed data,
  // zeros past its end. Readers use the front alone.
  std::vector<uint8_t> value;
};

// Returns the item's bytes, without its length.
[[nodiscard]] ByteCursor ItemBody(const LengthValueItem* item);
// Takes the bytes of the next item, or as many of them as there are. Returns true when the item is
// whole. Some callers accept an item that is not, and ignore the result.
bool TakeItemAtMost(ByteCursor& cursor, ByteCursor& out);

// Parse the body of one item. A digest or a signature is an algorithm ID, a value length and a
// value, which must end where the item ends.
[[nodiscard]] bool ParseItem(ByteCursor item, Digest& out);
[[nodiscard]] bool ParseItem(ByteCursor item, Signature& out);
// An attribute is an ID and a value. `behind` counts the bytes behind the item that belong to the
// same signed data.
void ParseItem(ByteCursor item, uint64_t behind, Attribute& out);

// Parse the body of a whole sequence. Its last item must end where the sequence ends. They append
// to `out`; items before a bad one stay there.
[[nodiscard]] bool ParseSequence(ByteCursor items, std::vector<Digest>& out);
[[nodiscard]] bool ParseSequence(ByteCursor items, std::vector<Signature>& out);
// Certificates: the DER bytes of each, possibly none.
[[nodiscard]] bool ParseSequence(ByteCursor items, std::vector<std::vector<uint8_t>>& out);
// `following` counts the bytes behind the sequence that belong to the same signed data.
[[nodiscard]] bool ParseSequence(ByteCursor items, uint64_t following, std::vector<Attribute>& out);

}  // namespace Quill
