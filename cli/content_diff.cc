// SPDX-License-Identifier: Apache-2.0

#include "cli/content_diff.h"

#include <ziparchive/zip_archive.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "anatomy/package.h"
#include "cli/package_evidence.h"
#include "crypto/hash.h"
#include "util/escape.h"

namespace Quill::Tool {
namespace {

using Anatomy::Field;
using Json = nlohmann::ordered_json;

// How an entry is stored otherwise.
struct Storage {
  uint32_t flag;
  const char* name;
};
constexpr uint32_t kMethod = 1;
constexpr uint32_t kCompression = 2;  // other compressed bytes by the same method
constexpr uint32_t kTime = 4;
constexpr uint32_t kExtra = 8;
constexpr uint32_t kHeader = 16;  // another field of its headers
constexpr uint32_t kAlignment = 32;
constexpr uint32_t kOrder = 64;
constexpr uint32_t kNotExtracted = 128;  // one of the two cannot be extracted
constexpr Storage kStorage[] = {{kMethod, "method"}, {kCompression, "compression"},
                                {kTime, "time"},     {kExtra, "extra"},
                                {kHeader, "header"}, {kAlignment, "alignment"},
                                {kOrder, "order"},   {kNotExtracted, "unreadable"}};
// What may differ between the same entries.
constexpr uint32_t kPlace = kAlignment | kOrder;

bool AreSame(ByteCursor a, ByteCursor b) {
  return a.Remaining() == b.Remaining() &&
         (a.Remaining() == 0 || std::memcmp(a.Data(), b.Data(), a.Remaining()) == 0);
}

bool IsZero(ByteCursor bytes) {
  const uint8_t* data = bytes.Data();
  return bytes.Remaining() == 0 ||
         (data[0] == 0 && std::memcmp(data, data + 1, bytes.Remaining() - 1) == 0);
}

bool IsNamed(const Field& field, std::string_view name) { return field.name == name; }

struct PackageEntry {
  const Field* local = nullptr;    // "entries[i]"
  const Field* central = nullptr;  // its record in the central directory
  size_t rank = 0;                 // in the directory
  std::optional<ZipEntry> found;   // nothing: the archive library refuses it
};

// One of the packages, without the files of its JAR signature.
class PackageContents {
 public:
  explicit PackageContents(std::shared_ptr<MapFile> mapping)
      : package_(Anatomy::ReadPackage(std::move(mapping))) {
    const ByteCursor bytes = Bytes();
    const int32_t result =
        OpenArchiveFromMemory(bytes.Data(), bytes.Remaining(), "file", &archive_);
    if (result != 0) {
      obstacle_ = std::string("no archive that can be read: ") + ErrorCodeString(result);
    } else if (!FindEntries()) {
      obstacle_ = "its central directory cannot be read whole";
    }
  }
  PackageContents(const PackageContents&) = delete;
  PackageContents& operator=(const PackageContents&) = delete;
  ~PackageContents() {
    if (archive_ != nullptr) CloseArchive(archive_);
  }

  const std::string& Obstacle() const { return obstacle_; }  // empty: it can be read
  const std::map<std::string_view, PackageEntry>& Entries() const { return entries_; }
  ByteCursor Bytes() const { return package_.Bytes(); }

  // The bytes of a field; none when there is no such field.
  ByteCursor BytesIn(const Field* field) const {
    return field == nullptr ? ByteCursor() : BytesOf(*field, Bytes());
  }
  ByteCursor BytesIn(const Field* parent, std::string_view child) const {
    return parent == nullptr ? ByteCursor() : BytesIn(parent->Child(child));
  }

  // The data of an entry as they are stored. Nothing where the file does not have them.
  std::optional<ByteCursor> Stored(const ZipEntry& entry) const {
    ByteCursor rest = Bytes();
    ByteCursor data;
    if (!rest.Take(static_cast<uint64_t>(entry.offset), data) ||
        !rest.Take(entry.compressed_length, data)) {
      return std::nullopt;
    }
    return data;
  }

  // The digest of the data of an entry; nothing when they cannot be extracted.
  std::optional<std::vector<uint8_t>> Digest(ZipEntry entry) const {
    HashSHA256 hash;
    const auto update = [](const uint8_t* data, size_t size, void* cookie) {
      return static_cast<HashSHA256*>(cookie)->Update(data, size) == 1;
    };
    if (ProcessZipEntryContents(archive_, &entry, update, &hash) != 0) return std::nullopt;
    return hash.Final();
  }

  ByteCursor Comment() const { return BytesIn(&package_.file, "comment"); }

  // The bytes of the file that are neither of a signature nor padding, and what does not follow
  // from those: the counts and the offsets of the directory.
  std::vector<ByteCursor> Kept() const {
    std::vector<ByteCursor> kept;
    for (const Field& field : package_.file.fields) {
      const bool isLeftOut = IsNamed(field, "signingBlock") ||
                             (IsNamed(field, "gap") && IsZero(BytesIn(&field))) ||
                             (IsNamed(field, "entries") && IsLeftOut(field));
      if (isLeftOut) continue;
      if (IsNamed(field, "centralDirectory")) {
        for (const Field& record : field.fields) KeepRecord(record, kept);
      } else if (IsNamed(field, "endRecord")) {
        KeepWithout({"entriesOnDisk", "entries", "centralDirectorySize", "centralDirectoryOffset"},
                    field, kept);
      } else {
        kept.push_back(BytesIn(&field));
      }
    }
    return kept;
  }

 private:
  // Returns false unless these are all entries that the archive library has.
  bool FindEntries() {
    std::vector<const Field*> records;
    for (const Field& field : package_.file.fields) {
      if (!IsNamed(field, "centralDirectory")) continue;
      for (const Field& record : field.fields) {
        if (record.index >= 0) records.push_back(&record);
      }
    }
    size_t count = 0;
    for (const Field& field : package_.file.fields) {
      if (!IsNamed(field, "entries") || !field.extras) continue;
      const auto rank = static_cast<size_t>(field.index);
      if (rank >= records.size()) return false;
      ++count;
      const std::string& name = field.extras->text;
      PackageEntry entry = {&field, records[rank], rank, ZipEntry()};
      if (::FindEntry(archive_, name, &*entry.found) != 0) entry.found.reset();
      if (IsSignatureRelated(name) || IsEmptyFolderOfSignature(name, entry)) {
        leftOut_.insert(field.index);
        continue;
      }
      if (!entries_.emplace(name, entry).second) return false;
    }
    return count == GetArchiveInfo(archive_).entry_count;
  }

  // Signing tools add the entry of the folder, or drop it.
  bool IsEmptyFolderOfSignature(std::string_view name, const PackageEntry& entry) const {
    if (name != "META-INF/" || !entry.found || entry.found->uncompressed_length != 0) return false;
    constexpr uint8_t kDeflatedNothing[] = {3, 0};
    const auto data = Stored(*entry.found);
    return data && (data->Remaining() == 0 ||
                    AreSame(*data, ByteCursor(kDeflatedNothing, sizeof kDeflatedNothing)));
  }

  // Of an entry, or of its record in the directory.
  bool IsLeftOut(const Field& field) const { return leftOut_.count(field.index) != 0; }

  void KeepRecord(const Field& record, std::vector<ByteCursor>& kept) const {
    if (record.index < 0) {
      kept.push_back(BytesIn(&record));
    } else if (!IsLeftOut(record)) {
      KeepWithout({"localHeaderOffset"}, record, kept);
    }
  }

  void KeepWithout(std::initializer_list<std::string_view> names, const Field& field,
                   std::vector<ByteCursor>& kept) const {
    for (const Field& child : field.fields) {
      if (std::find(names.begin(), names.end(), child.name) == names.end()) {
        kept.push_back(BytesIn(&child));
      }
    }
  }

  Anatomy::Package package_;
  ZipArchive* archive_ = nullptr;
  std::string obstacle_;
  std::map<std::string_view, PackageEntry> entries_;  // by name
  std::set<int32_t> leftOut_;                         // the numbers of the others
};

// Returns true when two lists of pieces are the same bytes.
bool AreSame(const std::vector<ByteCursor>& a, const std::vector<ByteCursor>& b) {
  auto left = a.begin();
  auto right = b.begin();
  ByteCursor one;
  ByteCursor other;
  for (;;) {
    while (one.Remaining() == 0 && left != a.end()) one = *left++;
    while (other.Remaining() == 0 && right != b.end()) other = *right++;
    const uint64_t size = std::min(one.Remaining(), other.Remaining());
    if (size == 0) return one.Remaining() == other.Remaining();
    if (!AreSame(one.TakeAtMost(size), other.TakeAtMost(size))) return false;
  }
}

// The extra fields of an entry.
struct ExtraFields {
  std::string alignment;  // those that are there to align its data
  std::string others;
};

ExtraFields SplitExtra(ByteCursor bytes) {
  constexpr uint64_t kHeaderSize = 4;
  constexpr uint64_t kMultipleSize = 2;
  const std::string_view text(reinterpret_cast<const char*>(bytes.Data()), bytes.Remaining());
  // Old tools put zeros behind the last field.
  const size_t last = text.find_last_not_of('\0');
  const size_t end = last == std::string_view::npos ? 0 : last + 1;
  ExtraFields fields;
  size_t offset = 0;
  while (offset < end) {
    ByteCursor rest(bytes.Data() + offset, bytes.Remaining() - offset);
    size_t size = rest.Remaining();
    uint32_t header = 0;
    if (rest.TakeU32(header)) size = std::min<size_t>(size, kHeaderSize + (header >> 16));
    const bool isAlignment = (header & 0xffff) == 0xd935 && size >= kHeaderSize + kMultipleSize &&
                             IsZero(ByteCursor(bytes.Data() + offset + kHeaderSize + kMultipleSize,
                                               size - kHeaderSize - kMultipleSize));
    (isAlignment ? fields.alignment : fields.others) += text.substr(offset, size);
    offset += size;
  }
  fields.alignment += text.substr(std::min(offset, text.size()));
  return fields;
}

// Returns which elements are not in the longest increasing subsequence: those that were moved.
std::vector<bool> FindMoved(const std::vector<size_t>& ranks) {
  std::vector<size_t> ends;  // the element that ends the best sequence of each length
  std::vector<size_t> previous(ranks.size(), ranks.size());
  for (size_t i = 0; i < ranks.size(); ++i) {
    const auto place = std::lower_bound(ends.begin(), ends.end(), ranks[i],
                                        [&](size_t end, size_t rank) { return ranks[end] < rank; });
    if (place != ends.begin()) previous[i] = *std::prev(place);
    if (place == ends.end()) {
      ends.push_back(i);
    } else {
      *place = i;
    }
  }
  std::vector<bool> isMoved(ranks.size(), true);
  for (size_t i = ends.empty() ? ranks.size() : ends.back(); i < ranks.size(); i = previous[i]) {
    isMoved[i] = false;
  }
  return isMoved;
}

class ContentComparison {
 public:
  ContentComparison(const PackageContents& a, const PackageContents& b) : a_(a), b_(b) {}

  Json Compare() {
    FindOrder();
    for (const auto& [name, entry] : a_.Entries()) {
      const auto other = b_.Entries().find(name);
      if (other == b_.Entries().end()) {
        Add(name, "removed", 0, &entry, nullptr);
      } else {
        CompareEntries(name, entry, other->second);
      }
    }
    for (const auto& [name, entry] : b_.Entries()) {
      if (a_.Entries().count(name) == 0) Add(name, "added", 0, nullptr, &entry);
    }
    const bool hasNoDifference = list_.empty();
    Json archive = Json::array();
    if (!AreSame(a_.Comment(), b_.Comment())) {
      archive.push_back("comment");
    } else if (hasNoDifference && !AreSame(a_.Kept(), b_.Kept())) {
      archive.push_back("layout");
    }
    const char* same = "bytes";
    if (!archive.empty() || (how_ & kPlace) != 0) same = "entries";
    if ((how_ & ~kPlace) != 0) same = "contents";
    if (list_.size() != counts_["stored"].get<size_t>()) same = "no";
    return {{"sameContent", same},
            {"identical", false},
            {"counts", counts_},
            {"archive", archive},
            {"entries", std::move(list_)}};
  }

 private:
  void FindOrder() {
    std::vector<std::pair<size_t, const PackageEntry*>> common;  // by their rank in a
    for (const auto& [name, entry] : a_.Entries()) {
      const auto other = b_.Entries().find(name);
      if (other != b_.Entries().end()) common.emplace_back(entry.rank, &other->second);
    }
    std::sort(common.begin(), common.end());
    std::vector<size_t> ranks;
    ranks.reserve(common.size());
    for (const auto& [rank, entry] : common) ranks.push_back(entry->rank);
    const std::vector<bool> isMoved = FindMoved(ranks);
    for (size_t i = 0; i < common.size(); ++i) {
      if (isMoved[i]) moved_.push_back(common[i].second);
    }
    std::sort(moved_.begin(), moved_.end());
  }

  void CompareEntries(std::string_view name, const PackageEntry& a, const PackageEntry& b) {
    uint32_t how = 0;
    bool isSameData = false;
    bool isSameContent = false;
    if (a.found && b.found) {
      const auto left = a_.Stored(*a.found);
      const auto right = b_.Stored(*b.found);
      const bool isSameSize = a.found->uncompressed_length == b.found->uncompressed_length;
      isSameData = isSameSize && a.found->method == b.found->method && left && right &&
                   AreSame(*left, *right);
      isSameContent = isSameData;
      // An entry is extracted to the size that it declares, or not at all.
      if (isSameSize && !isSameData) {
        const auto digest = a_.Digest(*a.found);
        const auto other = b_.Digest(*b.found);
        if (!digest || !other) how |= kNotExtracted;
        isSameContent = digest && other && *digest == *other;
      }
      if (a.found->method != b.found->method) {
        how |= kMethod;
      } else if (isSameContent && !isSameData) {
        how |= kCompression;
      }
    } else {
      how |= kNotExtracted;
    }
    how |= CompareHeaders(a, b, isSameData);
    if (std::binary_search(moved_.begin(), moved_.end(), &b)) how |= kOrder;
    if (!isSameContent) {
      Add(name, "content", how, &a, &b);
    } else if (how != 0) {
      Add(name, "stored", how, &a, &b);
    }
  }

  // Compares the fields that do not follow from the data. `isSameData`: all of them.
  uint32_t CompareHeaders(const PackageEntry& a, const PackageEntry& b, bool isSameData) const {
    const Field* local = a.local->Child("localHeader");
    const Field* otherLocal = b.local->Child("localHeader");
    const auto differs = [this](const Field* one, const Field* other, auto... names) {
      return (... || !AreSame(a_.BytesIn(one, names), b_.BytesIn(other, names)));
    };
    uint32_t how = 0;
    if (differs(local, otherLocal, "modified") || differs(a.central, b.central, "modified")) {
      how |= kTime;
    }
    if (differs(a.central, b.central, "versionMadeBy", "diskNumber", "internalAttributes",
                "externalAttributes", "comment") ||
        (isSameData &&
         (differs(a.central, b.central, "versionNeeded", "flags", "crc32", "compressedSize") ||
          differs(local, otherLocal, "versionNeeded", "flags", "crc32", "compressedSize",
                  "uncompressedSize") ||
          differs(a.local, b.local, "descriptor")))) {
      how |= kHeader;
    }
    for (const auto& [one, other] :
         {std::pair(local, otherLocal), std::pair(a.central, b.central)}) {
      if (!differs(one, other, "extra")) continue;
      const ExtraFields fields = SplitExtra(a_.BytesIn(one, "extra"));
      const ExtraFields others = SplitExtra(b_.BytesIn(other, "extra"));
      if (fields.others != others.others) how |= kExtra;
      if (fields.alignment != others.alignment) how |= kAlignment;
    }
    return how;
  }

  // One of the entries may be null.
  void Add(std::string_view name, const char* change, uint32_t how, const PackageEntry* a,
           const PackageEntry* b) {
    how_ |= how;
    counts_[change] = counts_[change].get<size_t>() + 1;
    Json ways = Json::array();
    for (const Storage& storage : kStorage) {
      if ((how & storage.flag) != 0) ways.push_back(storage.name);
    }
    const auto sizes = [](const PackageEntry* entry) -> Json {
      if (entry == nullptr || !entry->found) return nullptr;
      return {{"size", entry->found->uncompressed_length},
              {"compressedSize", entry->found->compressed_length}};
    };
    list_.push_back({{"name", EscapeInvalidUtf8(name)},
                     {"change", change},
                     {"how", ways},
                     {"a", sizes(a)},
                     {"b", sizes(b)}});
  }

  const PackageContents& a_;
  const PackageContents& b_;
  std::vector<const PackageEntry*> moved_;  // of b, in order of their addresses
  uint32_t how_ = 0;                        // all of them
  Json counts_ = {{"content", 0}, {"added", 0}, {"removed", 0}, {"stored", 0}};
  Json list_ = Json::array();
};

}  // namespace

Json CompareContents(std::shared_ptr<MapFile> a, std::shared_ptr<MapFile> b) {
  const bool isIdentical =
      AreSame(ByteCursor(a->Data(), a->Size()), ByteCursor(b->Data(), b->Size()));
  const PackageContents left(std::move(a));
  if (!left.Obstacle().empty()) return {{"obstacle", left.Obstacle()}, {"in", "a"}};
  if (isIdentical) {
    return {{"sameContent", "bytes"},
            {"identical", true},
            {"counts", {{"content", 0}, {"added", 0}, {"removed", 0}, {"stored", 0}}},
            {"archive", Json::array()},
            {"entries", Json::array()}};
  }
  const PackageContents right(std::move(b));
  if (!right.Obstacle().empty()) return {{"obstacle", right.Obstacle()}, {"in", "b"}};
  return ContentComparison(left, right).Compare();
}

}  // namespace Quill::Tool
