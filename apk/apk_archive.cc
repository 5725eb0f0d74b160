// SPDX-License-Identifier: Apache-2.0

#include <ziparchive/zip_archive.h>

#include <quillon/apk.h>
#include <quillon/file.h>

#include "util/nothrow.h"

namespace Quill {
namespace {

// libziparchive's codes for a stream that cannot be inflated, and for lengths that contradict each
// other. Its public header has no names for them.
constexpr int32_t kZlibError = -2;
constexpr int32_t kInconsistentInformation = -9;

// More than zlib takes to inflate a stream.
constexpr size_t kInflateMemory = 64 << 10;

// Returns false for a method that libziparchive does not know, and for a length that the stream
// cannot have: deflate makes at most 258 bytes from 2 bits. (FindEntry fails for a stored entry
// whose length does not fit the file.)
bool CanBeExtracted(const ZipEntry& entry) {
  constexpr uint64_t kMostExpansion = 258 * 8 / 2;
  if (entry.method == kCompressStored) return true;
  return entry.method == kCompressDeflated &&
         entry.uncompressed_length <= entry.compressed_length * kMostExpansion;
}

// Returns libziparchive's code for an entry that cannot be extracted. Allocates nothing for its
// bytes.
int32_t ExtractionError(ZipArchive* archive, ZipEntry* entry) {
  const auto discard = [](const uint8_t*, size_t, void*) { return true; };
  const int32_t result = ProcessZipEntryContents(archive, entry, discard, nullptr);
  return result != 0 ? result : kInconsistentInformation;
}

}  // namespace

int32_t Apk::FindEntry(const std::string& name, ZipEntry* entry) {
  return ::FindEntry(archive_, name.c_str(), entry);
}

int32_t Apk::FindEntry(std::string_view name, ZipEntry* entry) {
  return ::FindEntry(archive_, name, entry);
}

int32_t Apk::Extract(ZipEntry* entry, std::vector<uint8_t>& out) {
  if (!CanBeExtracted(*entry)) return ExtractionError(archive_, entry);
  out.resize(entry->uncompressed_length);
  const auto length = entry->uncompressed_length;
  const int32_t result = ExtractToMemory(archive_, entry, out.data(), length);
  if (result != kZlibError) return result;
  // The error may be lack of memory, which must not count as a damaged entry: a package without a
  // readable AndroidManifest.xml is taken for a plain JAR.
  RequireMemory(kInflateMemory);
  return ExtractToMemory(archive_, entry, out.data(), length);
}

int32_t Apk::Extract(ZipEntry* entry, std::string& out) {
  std::vector<uint8_t> bytes;
  const int32_t result = Extract(entry, bytes);
  if (result == 0) out.assign(bytes.begin(), bytes.end());
  return result;
}

template <typename Container>
int32_t Apk::ExtractByNameImpl(const std::string& name, Container& out) {
  ZipEntry entry;
  const int32_t result = FindEntry(name, &entry);
  return result != 0 ? result : Extract(&entry, out);
}

int32_t Apk::ExtractByName(const std::string& name, std::vector<uint8_t>& out) {
  return ExtractByNameImpl(name, out);
}

int32_t Apk::ExtractByName(const std::string& name, std::string& out) {
  return ExtractByNameImpl(name, out);
}

int32_t Apk::GetContents(ZipEntry* entry, std::vector<uint8_t>& out) { return Extract(entry, out); }

int32_t Apk::GetContents(const std::string& path, std::vector<uint8_t>& out) {
  return ReadFile(path, out) ? 0 : -1;
}

int32_t Apk::StartIteration(void** cookie, const std::string& prefix, const std::string& suffix) {
  return ::StartIteration(archive_, cookie, prefix.c_str(), suffix.c_str());
}

int32_t Apk::Next(void* cookie, ZipEntry* entry, std::string_view& name) {
  return ::Next(cookie, entry, &name);
}

int32_t Apk::Next(void* cookie, ZipEntry* entry, std::string& name) {
  std::string_view view;
  const int32_t result = Next(cookie, entry, view);
  if (result == 0) name = view;
  return result;
}

void Apk::EndIteration(void* cookie) { ::EndIteration(cookie); }

}  // namespace Quill
