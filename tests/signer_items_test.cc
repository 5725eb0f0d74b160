#include "schemes/signer_items.h"

#include <gtest/gtest.h>

#include "schemes/apk_signature_block_base.h"
#include "tests/support/log_capture.h"
#include "tests/support/signers.h"

namespace Quill {
namespace {

using Base = ApkSignatureBlockBase;

// Bytes that begin with a length, in a block of exactly their size.
const LengthValueItem* Item(const ByteVector& bytes) {
  return reinterpret_cast<const LengthValueItem*>(bytes.data());
}

ByteVector AlgorithmItem(uint32_t length, uint32_t id, uint32_t valueLength,
                         const ByteVector& value) {
  return Wire().U32(length).U32(id).U32(valueLength).Bytes(value);
}

TEST(SignerItems, DigestAndSignatureLengthsMustAgreeExactly) {
  const ByteVector good = AlgorithmItem(10, 0x0103, 2, {0xd1, 0xd2});
  const struct {
    const char* name;
    ByteVector items;
    bool isAccepted;
    size_t count;
  } kCases[] = {
      {"empty sequence", {}, true, 0},
      {"exact", good, true, 1},
      {"one byte beyond the value", AlgorithmItem(11, 0x0103, 2, {0xd1, 0xd2, 0}), false, 0},
      {"one byte short of the value", AlgorithmItem(9, 0x0103, 2, {0xd1}), false, 0},
      {"lengths whose sum wraps", AlgorithmItem(4, 0x0103, 0xfffffffc, {}), false, 0},
      {"one byte longer than the rest", AlgorithmItem(11, 0x0103, 3, {1, 2}), false, 0},
      {"three bytes left over", Wire().Bytes(good).Fill(3), false, 1},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    LogCapture log;
    const ByteVector sequence = Wire().LengthPrefixed(c.items);
    std::vector<Digest> digests;
    std::vector<Signature> signatures;
    EXPECT_EQ(c.isAccepted, Base::ParseDigests(Item(sequence), digests));
    EXPECT_EQ(c.isAccepted, Base::ParseSignatures(Item(sequence), signatures));
    EXPECT_EQ(c.count, digests.size());
    EXPECT_EQ(c.count, signatures.size());
    EXPECT_EQ(Lines(), log.Take());
  }
  Signature signature;
  EXPECT_TRUE(Base::ParseSignatureItem(Item(good), signature));
  EXPECT_FALSE(Base::ParseSignatureItem(Item(AlgorithmItem(10, 0x0201, 1, {1, 2})), signature));
  EXPECT_EQ(0x0103u, signature.algorithmId);
  EXPECT_EQ((ByteVector{0xd1, 0xd2}), signature.value);
}

TEST(SignerItems, AttributeValuesRunFourBytesOnAndEndInZeros) {
  const struct {
    const char* name;
    ByteVector items;
    ByteVector following;  // signed data behind the sequence
    bool isAccepted;
    std::vector<std::pair<uint32_t, ByteVector>> attributes;
  } kCases[] = {
      {"empty sequence", {}, {9}, true, {}},
      {"at the end",
       Wire().U32(8).U32(0xbeeff00d).U32(2),
       {},
       true,
       {{0xbeeff00d, {2, 0, 0, 0, 0, 0, 0, 0}}}},
      {"three bytes follow", Wire().U32(5).U32(7).U8(1), {2, 3, 4}, true, {{7, {1, 2, 3, 4, 0}}}},
      {"more bytes follow",
       Wire().U32(5).U32(7).U8(1),
       {2, 3, 4, 5, 6},
       true,
       {{7, {1, 2, 3, 4, 5}}}},
      {"an item follows",
       Wire().U32(4).U32(7).U32(4).U32(8),
       {},
       true,
       {{7, {4, 0, 0, 0}}, {8, {0, 0, 0, 0}}}},
      {"shorter than its ID",
       Wire().U32(2).U16(0xf00d),
       {0xef, 0xbe, 5, 6, 7},
       true,
       {{0xbeeff00d, {5, 6}}}},
      {"shorter than its ID, at the end",
       Wire().U32(2).U16(0xf00d),
       {},
       true,
       {{0x0000f00d, {0, 0}}}},
      {"empty, at the end", Wire().U32(0), {}, true, {{0, {}}}},
      {"no room for a length",
       Wire().U32(4).U32(7).Fill(3),
       {1, 2, 3, 4},
       false,
       {{7, {0, 0, 0, 1}}}},
      {"into what follows", Wire().U32(5).U32(7), {1}, false, {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    LogCapture log;
    const ByteVector signedData = Wire().LengthPrefixed(c.items).Bytes(c.following);
    std::vector<Attribute> attributes;
    EXPECT_EQ(c.isAccepted,
              Base::ParseAttributes(Item(signedData), attributes, c.following.size()));
    ASSERT_EQ(c.attributes.size(), attributes.size());
    for (size_t i = 0; i < attributes.size(); ++i) {
      EXPECT_EQ(c.attributes[i], std::pair(attributes[i].id, attributes[i].value));
    }
    EXPECT_EQ(Lines(), log.Take());
  }
}

// Parses every beginning of the items, in a block of exactly its size; returns the lengths at which
// that went well. `records` are those of the whole.
template <typename Record, typename Take>
std::vector<size_t> WholeLengths(const ByteVector& items, Take take, std::vector<Record>& records) {
  std::vector<size_t> lengths;
  for (size_t length = 0; length <= items.size(); ++length) {
    const ByteVector cut(items.begin(), items.begin() + static_cast<ptrdiff_t>(length));
    records.clear();
    if (TakeAll(ByteCursor(cut), take, records)) lengths.push_back(length);
  }
  return lengths;
}

TEST(SignerItems, NoTruncationIsReadPastItsEnd) {
  const ByteVector items =
      Wire().Bytes(AlgorithmItem(10, 1, 2, {1, 2})).Bytes(AlgorithmItem(9, 2, 1, {3}));
  const std::vector<size_t> itemEnds = {0, 14, 27};
  std::vector<Digest> digests;
  EXPECT_EQ(itemEnds, WholeLengths(items, TakeAlgorithmItem<Digest>, digests));
  std::vector<Attribute> attributes;
  const auto takeAttribute = [](ByteCursor& rest, Attribute& out) {
    return TakeAttributeItem(rest, /*following=*/0, out);
  };
  EXPECT_EQ(itemEnds, WholeLengths(items, takeAttribute, attributes));

  const std::vector<ByteVector> kCertificates = {{1, 2, 3}, {}, {4}};
  std::vector<ByteVector> certificates;
  EXPECT_EQ((std::vector<size_t>{0, 7, 11, 16}),
            WholeLengths(Sequence(kCertificates), TakeCertificate, certificates));
  EXPECT_EQ(kCertificates, certificates);
}

TEST(Algorithms, TheMorePreferredIsChosenAndOfEqualsTheFirst) {
  const uint32_t kBestFirst[] = {0x0202, 0x0102, 0x0104, 0x0201, 0x0101, 0x0103, 0x0301};
  for (size_t better = 0; better < std::size(kBestFirst); ++better) {
    for (size_t worse = better; worse < std::size(kBestFirst); ++worse) {
      const std::vector<Digest> entries = {{0x0421, {}},
                                           {kBestFirst[worse], {}},
                                           {kBestFirst[better], {}},
                                           {kBestFirst[better], {}}};
      const ptrdiff_t expected = better == worse ? 1 : 2;
      EXPECT_EQ(expected, Base::FindBestSupportedAlgoId(entries) - entries.begin())
          << better << ", " << worse;
    }
  }
  const std::vector<Signature> unknown = {{0x0421, {}}, {0, {}}};
  EXPECT_EQ(unknown.end(), Base::FindBestSupportedAlgoId(unknown));
}

}  // namespace
}  // namespace Quill
