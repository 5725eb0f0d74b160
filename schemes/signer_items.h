// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "util/byte_cursor.h"

// The length-prefixed items that signers are made of. All integers are little-endian. The parsers
// log nothing and read each length once. After false the cursor is of no further use.

namespace Quill {

// A 32-bit length and that many bytes. Every field of a signer that is a sequence, and every
// element of such a sequence, is one. A pointer to one is a promise that the whole item can be
// read. Nothing here makes that promise about a package: the bytes of a package travel as cursors.
struct __attribute__((packed)) LengthValueItem {
  uint32_t length;  // bytes that follow
};
static_assert(sizeof(LengthValueItem) == 4);

// The item's bytes, without its length.
ByteCursor ItemBody(const LengthValueItem* item);
// Takes the bytes of the next item, or as many of them as there are. True when the item is whole.
bool TakeItemAtMost(ByteCursor& cursor, ByteCursor& out);

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

// Reads the body of a digest or signature item: algorithm ID, value length, value. The value must
// end where the item ends.
template <typename Record>
bool ReadAlgorithmItem(ByteCursor item, Record& out) {
  uint32_t id;
  uint32_t valueLength;
  if (!item.TakeU32(id) || !item.TakeU32(valueLength) || item.Remaining() != valueLength) {
    return false;
  }
  out = {id, item.ToVector()};
  return true;
}

template <typename Record>
bool TakeAlgorithmItem(ByteCursor& items, Record& out) {
  ByteCursor item;
  return items.TakeLengthValue(item) && ReadAlgorithmItem(item, out);
}

// Takes one certificate item: the DER bytes, possibly none.
bool TakeCertificate(ByteCursor& items, std::vector<uint8_t>& out);

// Reads the body of an attribute item: ID, value. `behind` counts the bytes behind the item that
// belong to the same signed data.
void ReadAttributeItem(ByteCursor item, uint64_t behind, Attribute& out);
// Takes one attribute item. `following` counts the bytes behind `items` that belong to the same
// signed data.
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
