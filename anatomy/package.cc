// SPDX-License-Identifier: Apache-2.0

#include "anatomy/package.h"

#include <ziparchive/zip_archive.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

#include "anatomy/field_reader.h"
#include "anatomy/jar_fields.h"
#include "anatomy/signing_block_fields.h"
#include "anatomy/tiling.h"
#include "anatomy/zip_fields.h"
#include "anatomy/zip_records.h"
#include "signing_block/apk_package.h"
#include "signing_block/zip_format.h"
#include "util/text.h"

namespace Quill::Anatomy {
namespace {

constexpr size_t kMostExtracted = 64 << 20;  // of all entries that are decoded

// An open archive of libziparchive, or the text why it could not be opened.
class Archive {
 public:
  explicit Archive(ByteCursor file) {
    const int32_t result = OpenArchiveFromMemory(file.Data(), file.Remaining(), "file", &archive_);
    if (result == 0) return;
    obstacle_ = ErrorCodeString(result);
    Close();
  }
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;
  ~Archive() { Close(); }

  bool IsOpen() const { return archive_ != nullptr; }
  const std::string& Obstacle() const { return obstacle_; }

  // Returns the library's code, 0 for success.
  int32_t Find(std::string_view name, ZipEntry& out) const {
    return ::FindEntry(archive_, name, &out);
  }

  // Returns the first name with that start and end, in the library's order; empty: there is none.
  std::string FirstName(const char* start, const char* end) const {
    void* cookie = nullptr;
    if (!IsOpen() || StartIteration(archive_, &cookie, start, end) != 0) return "";
    ZipEntry entry;
    std::string name;
    const bool isFound = Next(cookie, &entry, &name) == 0;
    EndIteration(cookie);
    return isFound ? name : "";
  }

  // Appends the bytes of an entry, at most so many.
  bool Extract(ZipEntry entry, size_t most, std::vector<uint8_t>& out) const {
    struct Sink {
      size_t most;
      std::vector<uint8_t>& bytes;
    } sink = {most, out};
    const auto take = [](const uint8_t* data, size_t size, void* cookie) {
      auto& to = *static_cast<Sink*>(cookie);
      if (size > to.most - to.bytes.size()) return false;
      to.bytes.insert(to.bytes.end(), data, data + size);
      return true;
    };
    return ProcessZipEntryContents(archive_, &entry, take, &sink) == 0;
  }

 private:
  void Close() {
    if (archive_ != nullptr) CloseArchive(archive_);
    archive_ = nullptr;
  }

  ZipArchive* archive_ = nullptr;
  std::string obstacle_;
};

// Reads one file.
class PackageReader {
 public:
  explicit PackageReader(std::shared_ptr<MapFile> mapping)
      : file_(mapping->Data(), mapping->Size()),
        reader_(file_, budget_),
        tiling_(file_.Remaining()),
        archive_(file_),
        package_(mapping) {
    result_.mapping = std::move(mapping);
  }

  Package Read() && {
    bool hasChoice = false;
    if (const uint8_t* end = FindEndRecord()) {
      hasChoice = package_.ParseApkPackage();
      TakeEnd(end);
      if (const uint8_t* directory = TakeDirectory()) {
        TakeBlock(directory);
        TakeEntries();
      }
    }
    if (records_.empty()) TakeEntriesInFront();
    if (trailing_.Remaining() != 0) {
      tiling_.Claim(reader_.Make("trailing", trailing_, Shape::kBytes));
    }
    result_.file = tiling_.Finish();
    if (hasChoice) {
      result_.chosenPair = package_.GetVersionScheme() == 3 ? "signingBlock.v3" : "signingBlock.v2";
    }
    FindJarSignature();
    return std::move(result_);
  }

 private:
  ByteCursor From(uint64_t offset) const {
    ByteCursor rest = file_;
    static_cast<void>(rest.TakeAtMost(offset));
    return rest;
  }

  // The verifier's end record. In a file that is too short for the verifier's search, or has the
  // record right at its start, the last record that there is.
  const uint8_t* FindEndRecord() const {
    if (const EocdRecord* record = package_.FindEocdRecord()) {
      return reinterpret_cast<const uint8_t*>(record);
    }
    const uint64_t size = file_.Remaining();
    if (size < sizeof(EocdRecord)) return nullptr;
    for (uint64_t i = std::min(size - sizeof(EocdRecord), uint64_t{sizeof(EocdRecord)} - 1) + 1;
         i-- != 0;) {
      const uint8_t* position = file_.Data() + i;
      if (CopyRecord<EocdRecord>(position).signature == EocdRecord::kSignature) return position;
    }
    return nullptr;
  }

  void TakeEnd(const uint8_t* position) {
    ByteCursor cursor = From(reader_.OffsetOf(position));
    end_ = CopyRecord<EocdRecord>(position);
    const uint64_t commentLength = end_.commentLength;
    Field record = TakeEndRecord(reader_, cursor);
    if (!archive_.IsOpen()) {
      record.AddNote("the archive library refuses it: " + archive_.Obstacle());
    }
    if (commentLength > cursor.Remaining()) {
      record.AddNote("the comment would end behind the file");
    } else if (commentLength < cursor.Remaining()) {
      record.AddNote(std::to_string(cursor.Remaining() - commentLength) +
                     " bytes follow its comment");
    }
    const ByteCursor comment = cursor.TakeAtMost(commentLength);
    const uint64_t start = end_.centralDirectoryOffset;
    const uint64_t size = end_.centralDirectorySize;
    if (start + size != record.offset) {
      record.AddNote("the central directory would end at " + std::to_string(start + size));
    }
    tiling_.Claim(std::move(record));
    if (comment.Remaining() != 0) {
      tiling_.Claim(reader_.Make("comment", comment, Shape::kText));
    }
    trailing_ = cursor;
  }

  // Returns where the central directory starts; null when there is none.
  const uint8_t* TakeDirectory() {
    const uint64_t offset = end_.centralDirectoryOffset;
    if (offset > file_.Remaining()) return nullptr;
    ByteCursor start = From(offset);
    ByteCursor cursor = ByteCursor(start).TakeAtMost(end_.centralDirectorySize);
    uint32_t signature;  // the verifier reads it even where the stated size is too small for it
    if (!start.TakeU32(signature) || signature != CentralDirectory::kSignature) return nullptr;
    uint16_t count;
    std::memcpy(&count, end_.diskFields + sizeof end_.diskFields - sizeof count, sizeof count);
    Field directory = reader_.Make("centralDirectory", cursor, Shape::kGroup);
    const uint8_t* position = cursor.Data();
    records_.reserve(count);
    directory.fields.reserve(count);
    CentralRecord record;
    for (int32_t i = 0; i < count && cursor.Remaining() != 0; ++i) {
      if (!TakeCentralRecord(reader_, cursor, directory, i, record)) break;
      records_.push_back(record);
    }
    reader_.TakeRest(cursor, directory, "unused", "behind the last record");
    if (records_.size() < count) {
      directory.AddNote("the end record counts " + std::to_string(count) + " records");
    }
    tiling_.Claim(std::move(directory));
    return position;
  }

  void TakeBlock(const uint8_t* directory) {
    constexpr uint64_t kFooterSize = sizeof(ApkSigningBlockFooter);
    const uint64_t end = reader_.OffsetOf(directory);
    if (end < kFooterSize) return;
    const auto footer = CopyRecord<ApkSigningBlockFooter>(directory - kFooterSize);
    const bool hasMagic = std::memcmp(footer.magic, ApkSigningBlockFooter::kMagic,
                                      ApkSigningBlockFooter::kMagicSize) == 0;
    const bool fits = footer.size >= kFooterSize && footer.size <= end - sizeof(ApkSigningBlock);
    const uint64_t start = fits ? end - footer.size - sizeof(ApkSigningBlock) : end - kFooterSize;
    const bool agrees =
        fits && CopyRecord<ApkSigningBlock>(file_.Data() + start).size == footer.size;
    if (!hasMagic && !agrees) return;
    ByteCursor cursor = From(start).TakeAtMost(end - start);
    if (!fits) {
      Field block = reader_.Make("signingBlock", cursor, Shape::kGroup);
      block.AddNote("its size does not fit the file");
      reader_.TakeBytes(cursor, block, "footerSize", sizeof footer.size, Shape::kNumber);
      reader_.TakeBytes(cursor, block, "magic", sizeof footer.magic, Shape::kText);
      tiling_.Claim(std::move(block));
      return;
    }
    Field block = agrees ? TakeSigningBlock(reader_, cursor) : TakeDamagedBlock(reader_, cursor);
    if (!hasMagic) block.AddNote("its magic is damaged, so the verifier does not see it");
    tiling_.Claim(std::move(block));
  }

  void TakeEntries() {
    for (size_t i = 0; i < records_.size(); ++i) {
      const CentralRecord& record = records_[i];
      const auto index = static_cast<int32_t>(i);
      if (record.localHeaderOffset > file_.Remaining()) {
        Field entry = reader_.Make("entries", From(file_.Remaining()), Shape::kGroup, index);
        entry.AddNote("its local header would be at " + std::to_string(record.localHeaderOffset));
        ClaimEntry(std::move(entry), record.name, nullptr);
        continue;
      }
      constexpr uint16_t kHasDescriptor = 8;
      ZipEntry found;
      LocalEntry known = {record.dataSize, (record.flags & kHasDescriptor) != 0};
      const int32_t result = archive_.IsOpen() ? archive_.Find(record.name, found) : -1;
      if (result == 0) {
        known.dataSize =
            DataSizeOf(found.method, found.compressed_length, found.uncompressed_length);
        known.hasDescriptor = found.has_data_descriptor != 0;
      }
      ByteCursor cursor = From(record.localHeaderOffset);
      Field entry = TakeEntry(reader_, cursor, index, &known);
      const Field* data = entry.Child("data");
      const bool isSame =
          result == 0 && (data == nullptr || data->offset == static_cast<uint64_t>(found.offset));
      if (result != 0 && archive_.IsOpen()) {
        entry.AddNote(std::string("the archive library refuses it: ") + ErrorCodeString(result));
      } else if (result == 0 && !isSame) {
        entry.AddNote("the archive library reads another entry of this name");
      }
      ClaimEntry(std::move(entry), record.name, isSame ? &found : nullptr);
    }
  }

  // Reads the entries of an archive that has no directory, such as a download that was cut off.
  void TakeEntriesInFront() {
    ByteCursor cursor = file_;
    for (int32_t i = 0; IsLocalHeader(cursor) && i <= std::numeric_limits<uint16_t>::max(); ++i) {
      Field entry = TakeEntry(reader_, cursor, i, nullptr);
      if (entry.fields.empty()) return;
      const Field* name = entry.fields.front().Child("name");
      ClaimEntry(std::move(entry), name != nullptr ? ValueText(*name, file_) : "", nullptr);
    }
  }

  // `found` is the library's entry, if it has this one.
  void ClaimEntry(Field entry, std::string_view name, const ZipEntry* found) {
    if (!entry.extras) entry.extras = std::make_unique<Extras>();
    entry.extras->text = name;
    if (found != nullptr && !entry.fields.empty()) Decode(name, *found, entry);
    tiling_.Claim(std::move(entry));
  }

  // Reads what the entry holds, if it belongs to a JAR signature.
  void Decode(std::string_view name, const ZipEntry& found, Field& entry) {
    if (!StartsWith(name, "META-INF/")) return;
    const bool isManifest = name == "META-INF/MANIFEST.MF" || EndsWith(name, ".SF");
    const bool isBlock = EndsWith(name, ".RSA") || EndsWith(name, ".DSA") || EndsWith(name, ".EC");
    if (!isManifest && !isBlock) return;
    const auto data =
        std::find_if(entry.fields.begin(), entry.fields.end(),
                     [](const Field& field) { return field.name == std::string_view("data"); });
    if (data == entry.fields.end()) return;
    auto decoded = std::make_unique<Decoded>();
    if (!archive_.Extract(found, kMostExtracted - extracted_, decoded->bytes)) {
      data->AddNote("cannot be extracted, or not within the limit");
      return;
    }
    extracted_ += decoded->bytes.size();
    const FieldReader inside(ByteCursor(decoded->bytes), budget_);
    decoded->root = inside.Make("decoded", inside.Bytes(), Shape::kGroup);
    if (isManifest) TakeManifest(inside, decoded->root);
    if (isBlock) TakePkcs7(inside, decoded->root);
    if (!data->extras) data->extras = std::make_unique<Extras>();
    data->extras->decoded = std::move(decoded);
  }

  // The verifier takes the first signature file, and the RSA block of its name, else the DSA one.
  void FindJarSignature() {
    result_.signatureFile = archive_.FirstName("META-INF/", ".SF");
    const std::string& name = result_.signatureFile;
    if (name.empty()) return;
    const std::string stem = name.substr(0, name.rfind('.') + 1);
    ZipEntry entry;
    for (const char* suffix : {"RSA", "DSA"}) {
      if (archive_.Find(stem + suffix, entry) != 0 || entry.uncompressed_length == 0) continue;
      result_.signatureBlock = stem + suffix;
      return;
    }
  }

  const ByteCursor file_;
  FieldBudget budget_;
  FieldReader reader_;
  Tiling tiling_;
  Archive archive_;
  ApkPackage package_;
  EocdRecord end_ = {};
  ByteCursor trailing_;  // behind the comment
  std::vector<CentralRecord> records_;
  size_t extracted_ = 0;
  Package result_;
};

}  // namespace

Package ReadPackage(std::shared_ptr<MapFile> mapping) {
  return PackageReader(std::move(mapping)).Read();
}

const Field* FindEntryOf(const Package& package, const std::string& name) {
  const Field* found = nullptr;
  for (const Field& field : package.file.fields) {
    if (field.name == std::string_view("entries") && field.extras && field.extras->text == name) {
      found = &field;
    }
  }
  return found;
}

std::string NumberedPath(const Package& package, const std::string& path) {
  constexpr std::string_view kStart = "entries[";
  if (!StartsWith(path, kStart) || Find(package.file, path) != nullptr) return path;
  // A name may have brackets, too.
  for (size_t end = path.find(']'); end != std::string::npos; end = path.find(']', end + 1)) {
    const Field* entry = FindEntryOf(package, path.substr(kStart.size(), end - kStart.size()));
    if (entry == nullptr) continue;
    std::string numbered = entry->Name() + path.substr(end + 1);
    if (Find(package.file, numbered) != nullptr) return numbered;
  }
  return path;
}

}  // namespace Quill::Anatomy
