// SPDX-License-Identifier: Apache-2.0

#include "anatomy/signing_block_fields.h"

#include <iterator>
#include <string>
#include <utility>

#include "anatomy/signer_tree.h"
#include "signing_block/zip_format.h"

namespace Quill::Anatomy {
namespace {

constexpr uint64_t kLeastPair = sizeof(ApkSignatureBlock::id);

struct PairKind {
  uint32_t id;
  const char* name;
  int scheme;  // 0: its value is not read
};

constexpr PairKind kPairKinds[] = {
    {ApkSignatureBlock::kSchemeV2Id, "v2", 2},
    {ApkSignatureBlock::kSchemeV3Id, "v3", 3},
    {0x1b93ad61, "v31", 3},
    {0x42726577, "padding", 0},
    {0x6dff800d, "sourceStamp", 0},
    {0x504b4453, "dependencyMetadata", 0},
};
constexpr PairKind kUnknownPair = {0, "pairs", 0};

const PairKind& KindOf(uint32_t id) {
  for (const PairKind& kind : kPairKinds) {
    if (kind.id == id) return kind;
  }
  return kUnknownPair;
}

// Numbers the pairs of each name; the first has no number. Those without a name of their own have
// their place in the block.
class PairNumbers {
 public:
  int32_t Next(const PairKind& kind) {
    const int32_t place = place_++;
    if (&kind == &kUnknownPair) return place;
    const int32_t number = counts_[&kind - kPairKinds]++;
    return number == 0 ? -1 : number;
  }

 private:
  int32_t place_ = 0;
  int32_t counts_[std::size(kPairKinds)] = {};
};

bool TakePair(const FieldReader& reader, ByteCursor& pairs, PairNumbers& numbers, Field& block) {
  if (reader.Budget().IsSpent()) return reader.Fail(pairs, block, kTooManyFields);
  ByteCursor ahead = pairs;
  uint64_t length;
  if (!ahead.TakeU64(length)) return reader.Fail(pairs, block, "a pair is cut short");
  if (length < kLeastPair || length > ahead.Remaining()) {
    return reader.Fail(pairs, block,
                       "a pair with a length of " + std::to_string(length) + " where " +
                           std::to_string(ahead.Remaining()) + " bytes are left");
  }
  ByteCursor value = ahead.TakeAtMost(length);
  uint32_t id = 0;
  static_cast<void>(ByteCursor(value).TakeU32(id));
  const PairKind& kind = KindOf(id);
  ByteCursor whole = pairs.TakeAtMost(sizeof length + length);
  Field pair = reader.Make(kind.name, whole, Shape::kGroup, numbers.Next(kind));
  reader.TakeBytes(whole, pair, "length", sizeof length, Shape::kNumber);
  reader.TakeBytes(value, pair, "id", sizeof id, Shape::kPairId);
  if (kind.scheme != 0) {
    TakeSigners(reader, value, kind.scheme == 3, pair);
  } else {
    reader.TakeRest(value, pair, "value");
  }
  reader.Append(block, std::move(pair));
  return true;
}

Field TakeBlock(const FieldReader& reader, ByteCursor cursor, bool isWhole) {
  Field block = reader.Make("signingBlock", cursor, Shape::kGroup);
  const uint64_t inside = cursor.Remaining() - sizeof(ApkSigningBlockFooter);
  ByteCursor body = cursor.TakeAtMost(inside);
  reader.TakeBytes(body, block, "size", sizeof(ApkSigningBlock), Shape::kNumber);
  if (isWhole) {
    PairNumbers numbers;
    while (body.Remaining() != 0 && TakePair(reader, body, numbers, block)) {
    }
  } else {
    static_cast<void>(reader.Fail(body, block, "its sizes do not agree"));
  }
  reader.TakeBytes(cursor, block, "footerSize", sizeof(ApkSigningBlockFooter::size),
                   Shape::kNumber);
  reader.TakeBytes(cursor, block, "magic", ApkSigningBlockFooter::kMagicSize, Shape::kText);
  return block;
}

}  // namespace

Field TakeSigningBlock(const FieldReader& reader, ByteCursor cursor) {
  return TakeBlock(reader, cursor, /*isWhole=*/true);
}

Field TakeDamagedBlock(const FieldReader& reader, ByteCursor cursor) {
  return TakeBlock(reader, cursor, /*isWhole=*/false);
}

}  // namespace Quill::Anatomy
