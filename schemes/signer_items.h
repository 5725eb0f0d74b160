#pragma once

#include <cstdint>
#include <vector>

#include "util/byte_cursor.h"

// The length-prefixed items that signers are made of. All integers are little-endian. The parsers
// log nothing; one that answers false has consumed nothing.

namespace Quill {

// A 32-bit length and that many bytes. Every field of a signer that is a sequence, and every
// element of such a sequence, is one. A pointer to one is a promise that the whole item can be
// read; TakeItem is the one place that makes such a promise about a package.
struct __attribute__((packed)) LengthValueItem {
  uint32_t length;  // bytes that follow
};
static_assert(sizeof(LengthValueItem) == 4);

// The next item, or null when its length or its bytes do not fit what is left.
const LengthValueItem* TakeItem(ByteCursor& cursor);
// The item's bytes, without its length.
ByteCursor ItemBody(const LengthValueItem* item);

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
  // zeros past its end. Readers look at the front alone.
  std::vector<uint8_t> value;
};

// Takes one digest or signature item: algorithm ID, value length, value. The item's length must be
// the value's plus 8 exactly.
template <typename Record>
bool TakeAlgorithmItem(ByteCursor& items, Record& out) {
  ByteCursor rest = items;
  ByteCursor body;
  uint32_t id;
  uint32_t valueLength;
  const bool exact = rest.TakeLengthValue(body) && body.TakeU32(id) && body.TakeU32(valueLength) &&
                     body.Remaining() == valueLength;
  if (!exact) return false;
  out = {id, body.ToVector()};
  items = rest;
  return true;
}

// Takes one certificate item: the DER bytes, possibly none.
bool TakeCertificate(ByteCursor& items, std::vector<uint8_t>& out);

// Takes one attribute item: ID, value. `following` counts the bytes behind `items` that belong to
// the same signed data.
bool TakeAttributeItem(ByteCursor& items, uint64_t following, Attribute& out);

// The one sequence loop: item kinds differ in `take` alone. Ends on an exact landing only; items
// read before a bad one stay in `out`.
template <typename Record, typename Take>
bool TakeAll(ByteCursor items, Take take, std::vector<Record>& out) {
  while (items.Remaining() != 0) {
    Record record;
    if (!take(items, record)) return false;
    out.push_back(std::move(record));
  }
  return true;
}

}  // namespace Quill
