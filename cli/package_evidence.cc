// SPDX-License-Identifier: Apache-2.0

#include "cli/package_evidence.h"

#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>
#include <ziparchive/zip_archive.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cli/zip_directory.h"
#include "signing_block/zip_format.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

bool HasTraceOfSigningBlock(int fd) {
  EocdRecord end;
  ApkSigningBlockFooter footer;
  if (!ReadEndRecord(fd, end) || end.centralDirectoryOffset < sizeof footer) return false;
  const uint64_t blockEnd = end.centralDirectoryOffset;
  if (!ReadAt(fd, blockEnd - sizeof footer, &footer, sizeof footer)) return false;
  if (std::memcmp(footer.magic, ApkSigningBlockFooter::kMagic, sizeof footer.magic) == 0) {
    return true;
  }
  // In a block that is too short for its footer both sizes would be the same field.
  if (footer.size < sizeof footer || footer.size > blockEnd - sizeof(ApkSigningBlock)) return false;
  ApkSigningBlock block;
  return ReadAt(fd, blockEnd - sizeof block - footer.size, &block, sizeof block) &&
         block.size == footer.size;
}

bool JarManifestListsAndroidManifest(Apk& apk) {
  std::string manifest;
  return apk.ExtractByName(Apk::kMANIFEST_MF, manifest) == 0 &&
         manifest.find("\nName: AndroidManifest.xml") != std::string::npos;
}

// What a file may be instead of an archive, by its start.
constexpr char kUnpack[] = "unpack it, and verify the package in it";
constexpr char kFetch[] = "fetch the package itself";
constexpr char kSeeText[] = "read it to see why there is no package, and fetch that again";
constexpr struct {
  std::string_view start;
  LookAlike kind;
} kLookAlikes[] = {
    {"\x1f\x8b", {"a gzip file", kUnpack}},
    {"BZh", {"a bzip2 file", kUnpack}},
    {"\xfd\x37zXZ", {"an xz file", kUnpack}},
    {"\x37z\xbc\xaf", {"a 7z archive", kUnpack}},
    {"Rar!", {"a RAR archive", kUnpack}},
    {"<!DOCTYPE", {"an HTML page", kSeeText}},
    {"<html", {"an HTML page", kSeeText}},
    {"<?xml", {"an XML file", kSeeText}},
    {"{", {"a JSON text", kSeeText}},
    {"version http", {"a pointer of a large-file store", "fetch the file that it points to"}},
    {"\x7f\x45LF", {"an ELF program or library", kFetch}},
    {"dex\n", {"a DEX file", kFetch}},
};

// Says what a file that is no archive is instead, by its first bytes.
void LookAtStart(int fd, Circumstances& file) {
  char bytes[512];
  const ssize_t size = pread(fd, bytes, sizeof bytes, 0);
  std::string_view start(bytes, static_cast<size_t>(std::max<ssize_t>(size, 0)));
  file.startsAsZip = StartsWith(start, "PK\3\4");
  constexpr size_t kTarMagic = 257;
  if (start.size() > kTarMagic && StartsWith(start.substr(kTarMagic), "ustar")) {
    file.lookAlike = {"a tar archive", kUnpack};
  }
  // A page may start with a byte-order mark and blanks, and names its kind in any case.
  if (StartsWith(start, "\xef\xbb\xbf")) start.remove_prefix(3);
  while (!start.empty() && std::isspace(static_cast<unsigned char>(start.front())) != 0) {
    start.remove_prefix(1);
  }
  for (const auto& [begin, kind] : kLookAlikes) {
    if (start.size() >= begin.size() &&
        strncasecmp(start.data(), begin.data(), begin.size()) == 0) {
      file.lookAlike = kind;
    }
  }
}

// Returns whether there is an entry whose name begins and ends so.
bool HasEntry(Apk& apk, const char* prefix, const char* suffix) {
  void* cookie = nullptr;
  if (apk.StartIteration(&cookie, prefix, suffix) != 0) return false;
  ZipEntry entry;
  std::string name;
  const bool isFound = apk.Next(cookie, &entry, name) == 0;
  apk.EndIteration(cookie);
  return isFound;
}

// Returns whether META-INF/ has a file of a JAR signature.
bool HasJarSignature(Apk& apk) {
  constexpr const char* kSuffixes[] = {".SF", ".RSA", ".DSA", ".EC"};
  return std::any_of(std::begin(kSuffixes), std::end(kSuffixes),
                     [&apk](const char* suffix) { return HasEntry(apk, "META-INF/", suffix); });
}

}  // namespace

Circumstances CircumstancesOf(Apk& apk, int fd) {
  Circumstances file;
  file.scheme = static_cast<int>(apk.GetApkSignatureSchemeVersion());
  if (!apk.IsGoodZip()) {
    LookAtStart(fd, file);
    struct stat info;
    EocdRecord end;
    uint64_t endOffset = 0;
    if (fstat(fd, &info) == 0 && ReadEndRecord(fd, end, &endOffset)) {
      file.fileSize = static_cast<uint64_t>(info.st_size);
      file.archiveSize = endOffset + sizeof end + end.commentLength;
    }
    return file;
  }
  if (!apk.IsApk()) {
    file.contents = HasEntry(apk, "BundleConfig.pb", "") ? ArchiveContents::kBundle
                    : HasEntry(apk, "", ".apk")          ? ArchiveContents::kPackages
                                                         : ArchiveContents::kOther;
  }
  file.wasPackage = !apk.IsApk() && WasPackage(apk, fd);
  file.hasBlockTrace = HasTraceOfSigningBlock(fd);
  file.hasJarSignature = HasJarSignature(apk);
  return file;
}

bool ForEachEntry(Apk& apk,
                  const std::function<bool(const std::string& name, ZipEntry& entry)>& visit) {
  constexpr int32_t kIterationEnd = -1;  // of libziparchive
  void* cookie = nullptr;
  if (apk.StartIteration(&cookie, "", "") != 0) return false;
  const std::unique_ptr<void, void (*)(void*)> iteration(cookie, ::EndIteration);
  ZipEntry entry;
  std::string name;
  int32_t result = 0;
  while ((result = apk.Next(cookie, &entry, name)) == 0) {
    const bool isDirectory = EndsWith(name, "/") && entry.uncompressed_length == 0;
    if (!isDirectory && !visit(name, entry)) return false;
  }
  return result == kIterationEnd;
}

bool IsSignatureFile(std::string_view name) {
  return IsSignatureRelated(name) && EndsWith(name, ".SF");
}

bool IsSignatureRelated(std::string_view name) {
  constexpr std::string_view kFolder = "META-INF/";
  if (!StartsWith(name, kFolder)) return false;
  if (name.find('/', kFolder.size()) != std::string_view::npos) return false;
  return name == Apk::kMANIFEST_MF || EndsWith(name, ".SF") || EndsWith(name, ".RSA") ||
         EndsWith(name, ".DSA") || EndsWith(name, ".EC");
}

bool IsDamagedPackage(int fd) {
  constexpr int32_t kEntryNotFound = -7;  // of libziparchive, whose public header names no codes
  Apk apk(fd);
  if (!apk.IsGoodZip() || apk.IsApk()) return false;
  ZipEntry entry;
  const int32_t result = apk.FindEntry(std::string("AndroidManifest.xml"), &entry);
  return result != kEntryNotFound || WasPackage(apk, fd);
}

bool WasPackage(Apk& apk, int fd) {
  return HasTraceOfSigningBlock(fd) || JarManifestListsAndroidManifest(apk);
}

}  // namespace Quill::Tool
