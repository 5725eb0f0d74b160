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
constexpr uint32_t kSourceStampId = 0x6dff800d;

struct PairKind {
  uint32_t id;
  const char* name;
  int scheme;  // 0: none
};

constexpr PairKind kPairKinds[] = {
    {ApkSignatureBlock::kSchemeV2Id, "v2", 2},
    {ApkSignatureBlock::kSchemeV3Id, "v3", 3},
    {0x1b93ad61, "v31", 3},
    {0x42726577, "padding", 0},
    {kSourceStampId, "sourceStamp", 0},
    {0x504b4453, "dependencyMetadata", 0},
};
constexpr PairKind kUnknownPair = {0, "pairs", 0};

const PairKind& KindOf(uint32_t id) {
  for (const PairKind& kind : kPairKinds) {
    if (kind.id == id) return kind;
  }
  return kUnknownPair;
}

// Takes what `items` hold: each with a length, an ID, and what `takeValue` takes behind that.
template <class TakeValue>
void TakeIdItems(const FieldReader& reader, ByteCursor items, Field& sequence, const char* idName,
                 Shape shape, TakeValue takeValue) {
  for (int32_t i = 0; items.Remaining() != 0; ++i) {
    ByteCursor item;
    uint32_t id;
    Field* field = reader.TakeItem(items, sequence, "", i, item);
    if (field == nullptr) return;
    if (reader.TakeU32(item, *field, idName, shape, id)) takeValue(item, *field);
    reader.TakeRest(item, *field, "unused");
  }
}

// Takes the value of a source stamp: who vouches for the origin of the package, by signatures over
// the digests of each scheme and over attributes. The verifier reads none of it.
void TakeSourceStamp(const FieldReader& reader, ByteCursor value, Field& pair) {
  const auto takeSignatures = [&reader](ByteCursor& cursor, Field& parent) {
    ByteCursor items;
    Field* sequence = reader.TakeItem(cursor, parent, "signatures", -1, items);
    if (sequence == nullptr) return;
    TakeIdItems(reader, items, *sequence, "algorithm", Shape::kAlgorithm,
                [&reader](ByteCursor& item, Field& signature) {
                  ByteCursor bytes;
                  Field* field = reader.TakeItem(item, signature, "signature", -1, bytes);
                  if (field != nullptr) reader.TakeRest(bytes, *field, "value");
                });
  };
  ByteCursor body;
  ByteCursor inner;
  Field* stamp = reader.TakeItem(value, pair, "stamp", -1, body);
  if (stamp == nullptr) return;
  if (Field* field = reader.TakeItem(body, *stamp, "certificate", -1, inner)) {
    if (inner.Remaining() != 0) {
      reader.TakeBytes(inner, *field, "certificate", inner.Remaining(), Shape::kCertificate);
    }
  }
  if (body.Remaining() != 0) {
    if (Field* field = reader.TakeItem(body, *stamp, "schemes", -1, inner)) {
      TakeIdItems(reader, inner, *field, "scheme", Shape::kNumber, takeSignatures);
    }
  }
  if (body.Remaining() != 0) {
    ByteCursor items;
    Field* field = reader.TakeItem(body, *stamp, "attributes", -1, inner);
    Field* list = field == nullptr ? nullptr : reader.TakeItem(inner, *field, "list", -1, items);
    if (list != nullptr) {
      TakeIdItems(reader, items, *list, "id", Shape::kId,
                  [&reader](ByteCursor& item, Field& to) { reader.TakeRest(item, to, "value"); });
      reader.TakeRest(inner, *field, "unused");
    }
  }
  if (body.Remaining() != 0) takeSignatures(body, *stamp);
  reader.TakeRest(body, *stamp, "unused");
  reader.TakeRest(value, pair, "unused");
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
  } else if (id == kSourceStampId) {
    TakeSourceStamp(reader, value, pair);
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
