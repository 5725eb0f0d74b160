// SPDX-License-Identifier: Apache-2.0

#include "fuzz/archive_mutator.h"

#include "signing_block/zip_format.h"
#include "util/byte_cursor.h"

namespace Quill {
namespace {

constexpr size_t kMostEntries = 64;
constexpr uint16_t kHasDescriptor = 8;  // a bit of the flags
constexpr uint32_t kUnknownPair = 0x42726577;

// Where a field stands: its offset in the central header, and in the local one.
struct HeaderField {
  size_t central;
  size_t local;
  size_t size;
};
constexpr HeaderField kFlags = {8, 6, 2}, kMethod = {10, 8, 2}, kChecksum = {16, 14, 4};
constexpr HeaderField kPackedSize = {20, 18, 4}, kSize = {24, 22, 4};
constexpr HeaderField kNameSize = {28, 26, 2}, kExtraSize = {30, 28, 2};
constexpr size_t kCommentSize = 32, kOffset = 42;  // only in the central header

// One header with the variable parts behind it.
struct Header {
  ByteVector fixed;
  ByteVector name;
  ByteVector extra;
};

struct Entry {
  Header central, local;
  ByteVector comment;
  ByteVector data;  // as the archive stores it
  bool isInBlock = false;
};

uint32_t Get(const ByteVector& bytes, size_t offset, size_t size) {
  uint32_t value = 0;
  for (size_t i = size; i-- != 0;) value = value << 8 | bytes[offset + i];
  return value;
}

void Set(ByteVector& bytes, size_t offset, size_t size, uint64_t value) {
  for (size_t i = 0; i < size; ++i) bytes[offset + i] = static_cast<uint8_t>(value >> (8 * i));
}

bool TakeBytes(ByteCursor& from, uint64_t count, ByteVector& out) {
  ByteCursor taken;
  if (!from.Take(count, taken)) return false;
  out = taken.ToVector();
  return true;
}

bool TakeEntry(const ByteVector& front, ByteCursor& directory, Entry& out) {
  Header& central = out.central;
  Header& local = out.local;
  if (!TakeBytes(directory, 46, central.fixed)) return false;
  const auto ofCentral = [&](size_t offset) { return Get(central.fixed, offset, 2); };
  if (!TakeBytes(directory, ofCentral(kNameSize.central), central.name) ||
      !TakeBytes(directory, ofCentral(kExtraSize.central), central.extra) ||
      !TakeBytes(directory, ofCentral(kCommentSize), out.comment)) {
    return false;
  }
  ByteCursor at(front);
  ByteCursor before;
  return at.Take(Get(central.fixed, kOffset, 4), before) && TakeBytes(at, 30, local.fixed) &&
         TakeBytes(at, Get(local.fixed, kNameSize.local, 2), local.name) &&
         TakeBytes(at, Get(local.fixed, kExtraSize.local, 2), local.extra) &&
         TakeBytes(at, Get(central.fixed, kPackedSize.central, 4), out.data);
}

std::vector<Entry> TakeEntries(const PackageParts& parts) {
  std::vector<Entry> entries;
  const ByteVector front = Wire().Bytes(parts.regions[0]).Bytes(SigningBlock(parts.pairs));
  ByteCursor directory(parts.regions[1]);
  while (directory.Remaining() != 0 && entries.size() < kMostEntries) {
    Entry entry;
    if (!TakeEntry(front, directory, entry)) break;
    entry.isInBlock = Get(entry.central.fixed, kOffset, 4) >= parts.regions[0].size();
    entries.push_back(std::move(entry));
  }
  return entries;
}

// Sets a field in one header, or the same in both.
void SetField(Entry& entry, const HeaderField& field, uint64_t value, Random& random) {
  const size_t which = random.Below(4);
  if (which != 0) Set(entry.central.fixed, field.central, field.size, value);
  if (which != 1) Set(entry.local.fixed, field.local, field.size, value);
}

// Changes what fitting the headers to each other leaves valid.
void ChangeEntry(Entry& entry, Random& random) {
  static constexpr const char* kNames[] = {"AndroidManifest.xml",
                                           "classes.dex",
                                           "META-INF/MANIFEST.MF",
                                           "META-INF/CERT.SF",
                                           "META-INF/CERT.RSA",
                                           "META-INF/CERT.DSA",
                                           "META-INF/CERT.EC",
                                           "lib/arm64-v8a/libx.so",
                                           "lib/",
                                           "../x",
                                           ""};
  switch (random.Below(8)) {
    case 0: {
      const ByteVector name = Wire().Text(random.OneOf(kNames));
      if (!random.OneIn(4)) entry.central.name = name;
      if (!random.OneIn(4)) entry.local.name = name;
      break;
    }
    case 1:
      MutateBytes(entry.central.name);
      if (!random.OneIn(4)) entry.local.name = entry.central.name;
      break;
    case 2:
      MutateBytes(random.OneIn(2) ? entry.central.extra : entry.local.extra);
      break;
    case 3:
      MutateBytes(entry.comment);
      break;
    case 4:
      entry.isInBlock = !entry.isInBlock;
      break;
    case 5: {
      const uint32_t flags = Get(entry.central.fixed, kFlags.central, 2);
      SetField(entry, kFlags, flags ^ (1U << random.Below(16)), random);
      break;
    }
    default:
      MutateBytes(entry.data);
      break;
  }
}

// Sets lengths and sizes to those of the parts. A stored entry gets its size; its checksum is not
// computed again.
void Fit(Entry& entry) {
  const bool isStored = Get(entry.central.fixed, kMethod.central, 2) == 0;
  const auto fit = [&entry](const HeaderField& field, uint64_t forCentral, uint64_t forLocal) {
    Set(entry.central.fixed, field.central, field.size, forCentral);
    Set(entry.local.fixed, field.local, field.size, forLocal);
  };
  const bool hasDescriptor = (Get(entry.local.fixed, kFlags.local, 2) & kHasDescriptor) != 0;
  const auto inLocal = [hasDescriptor](uint64_t value) { return hasDescriptor ? 0 : value; };
  fit(kNameSize, entry.central.name.size(), entry.local.name.size());
  fit(kExtraSize, entry.central.extra.size(), entry.local.extra.size());
  Set(entry.central.fixed, kCommentSize, 2, entry.comment.size());
  fit(kPackedSize, entry.data.size(), inLocal(entry.data.size()));
  const uint32_t size = Get(entry.central.fixed, kSize.central, 4);
  if (isStored) fit(kSize, entry.data.size(), inLocal(entry.data.size()));
  if (!isStored) fit(kSize, size, inLocal(size));
}

void BreakEntry(Entry& entry, Random& random) {
  static constexpr HeaderField kFields[] = {kMethod,   kMethod,   kPackedSize, kSize,
                                            kChecksum, kNameSize, kExtraSize};
  static constexpr uint32_t kValues[] = {0, 1, 8, 9, 0x7fff, 0xffff, 0x7fffffff, 0xffffffff};
  const HeaderField& field = random.OneOf(kFields);
  const uint32_t value = Get(entry.central.fixed, field.central, field.size);
  const auto near = static_cast<uint32_t>(value + random.Below(33) - 16);
  SetField(entry, field, random.OneIn(2) ? near : random.OneOf(kValues), random);
}

ByteVector Written(const Entry& entry) {
  Wire wire;
  wire.Bytes(entry.local.fixed).Bytes(entry.local.name).Bytes(entry.local.extra).Bytes(entry.data);
  if ((Get(entry.local.fixed, kFlags.local, 2) & kHasDescriptor) != 0) {
    wire.U32(0x08074b50)
        .U32(Get(entry.central.fixed, kChecksum.central, 4))
        .U32(Get(entry.central.fixed, kPackedSize.central, 4))
        .U32(Get(entry.central.fixed, kSize.central, 4));
  }
  return wire;
}

}  // namespace

ByteVector ChangeArchive(PackageParts& parts, Random& random) {
  Regions& regions = parts.regions;
  std::vector<Entry> entries = TakeEntries(parts);
  if (entries.empty() || regions[2].size() < sizeof(EocdRecord)) return {};
  if (random.OneIn(8)) {
    const Entry copy = random.OneOf(entries);
    entries.insert(entries.begin() + static_cast<ptrdiff_t>(random.Below(entries.size() + 1)),
                   copy);
  }
  if (random.OneIn(16)) std::swap(random.OneOf(entries), random.OneOf(entries));
  if (random.OneIn(16)) {
    entries.erase(entries.begin() + static_cast<ptrdiff_t>(random.Below(entries.size())));
  }
  if (entries.empty()) return {};
  if (!random.OneIn(4)) ChangeEntry(random.OneOf(entries), random);
  for (Entry& entry : entries) Fit(entry);
  if (random.OneIn(2)) BreakEntry(random.OneOf(entries), random);

  Wire outside, inside;
  std::vector<std::pair<Entry*, size_t>> offsetsInside;
  for (Entry& entry : entries) {
    Wire& where = entry.isInBlock ? inside : outside;
    if (entry.isInBlock) {
      offsetsInside.emplace_back(&entry, where.Size());
    } else {
      Set(entry.central.fixed, kOffset, 4, where.Size());
    }
    where.Bytes(Written(entry));
  }
  constexpr size_t kBeforeValue = 8 + 12;  // the block's size, then the pair's length and ID
  for (const auto& [entry, offset] : offsetsInside) {
    Set(entry->central.fixed, kOffset, 4, outside.Size() + kBeforeValue + offset);
  }
  if (random.OneIn(16)) {  // anywhere in the file, and a little behind it
    Set(random.OneOf(entries).central.fixed, kOffset, 4,
        random.Below(outside.Size() + inside.Size() + 4096));
  }
  Wire directory;
  for (const Entry& entry : entries) {
    directory.Bytes(entry.central.fixed)
        .Bytes(entry.central.name)
        .Bytes(entry.central.extra)
        .Bytes(entry.comment);
  }
  const size_t wrong = random.OneIn(16) ? random.Below(3) : 0;
  Set(regions[2], 8, 2, entries.size() + wrong);
  Set(regions[2], 10, 2, entries.size() + wrong);
  regions[0] = outside;
  regions[1] = directory;
  if (inside.Size() == 0) return {};
  ByteVector pair = Wire().U64(4 + inside.Size()).U32(kUnknownPair).Bytes(inside);
  parts.pairs.insert(parts.pairs.begin(), pair.begin(), pair.end());
  return pair;
}

}  // namespace Quill
