// SPDX-License-Identifier: Apache-2.0

#include "cli/zip_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "anatomy/zip_records.h"

namespace Quill::Tool {
namespace {

using Anatomy::CentralDirectoryRecord;
using Anatomy::LocalHeaderRecord;

// Returns the offset behind the data of an entry; where that cannot be read, behind its header.
uint64_t EndOf(int fd, const CentralDirectoryRecord& record) {
  const uint64_t start = record.localHeaderOffset;
  LocalHeaderRecord header;
  if (!ReadAt(fd, start, &header, sizeof header)) return start + sizeof header;
  return start + sizeof header + header.entry.nameLength + header.entry.extraLength +
         DataSizeOf(record.entry);
}

}  // namespace

bool ReadAt(int fd, uint64_t offset, void* out, size_t size) {
  return pread(fd, out, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

bool ReadEndRecord(int fd, EocdRecord& out, uint64_t* offset) {
  constexpr uint64_t kMostTail = sizeof(EocdRecord) + UINT16_MAX;
  struct stat info;
  if (fstat(fd, &info) != 0) return false;
  const auto fileSize = static_cast<uint64_t>(info.st_size);
  std::vector<uint8_t> tail(std::min(fileSize, kMostTail));
  if (!ReadAt(fd, fileSize - tail.size(), tail.data(), tail.size())) return false;
  for (size_t end = tail.size(); end >= sizeof out; --end) {
    std::memcpy(&out, &tail[end - sizeof out], sizeof out);
    if (offset != nullptr) *offset = fileSize - tail.size() + end - sizeof out;
    if (out.signature == EocdRecord::kSignature) return true;
  }
  return false;
}

DirectoryFacts ReadDirectory(int fd, uint64_t blockOffset, uint64_t blockSize) {
  constexpr uint64_t kMostNameAndExtra = uint64_t{2} * UINT16_MAX;
  DirectoryFacts facts;
  EocdRecord end;
  uint64_t endOffset = 0;
  if (!ReadEndRecord(fd, end, &endOffset) || end.centralDirectoryOffset > endOffset) return facts;
  // Some readers look for the directory where it would have to start to end here.
  std::vector<uint8_t> bytes(endOffset - end.centralDirectoryOffset);
  if (!ReadAt(fd, end.centralDirectoryOffset, bytes.data(), bytes.size())) return facts;
  uint16_t counted;
  std::memcpy(&counted, &end.diskFields[6], sizeof counted);
  uint64_t count = 0;
  size_t offset = 0;
  while (bytes.size() - offset >= sizeof(CentralDirectoryRecord)) {
    const auto record = CopyRecord<CentralDirectoryRecord>(&bytes[offset]);
    const size_t size =
        sizeof record + record.entry.nameLength + record.entry.extraLength + record.commentLength;
    if (record.signature != CentralDirectory::kSignature || size > bytes.size() - offset) break;
    offset += size;
    ++count;
    // Only an entry that may reach the block is looked at more closely.
    const uint64_t start = record.localHeaderOffset;
    const bool isNear =
        start + sizeof(LocalHeaderRecord) + kMostNameAndExtra + DataSizeOf(record.entry) >
        blockOffset;
    if (isNear && start < blockOffset + blockSize && EndOf(fd, record) > blockOffset) {
      ++facts.entriesInBlock;
    }
  }
  // More records may stand behind other bytes.
  for (; bytes.size() - offset >= sizeof(CentralDirectoryRecord); ++offset) {
    uint32_t signature;
    std::memcpy(&signature, &bytes[offset], sizeof signature);
    if (signature == CentralDirectory::kSignature) ++count;
  }
  facts.uncounted = count - std::min<uint64_t>(count, counted);
  return facts;
}

}  // namespace Quill::Tool
