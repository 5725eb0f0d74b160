// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <filesystem>
#include <iterator>
#include <memory>
#include <string>

#include <quillon/file.h>

#include "tests/support/wire.h"

namespace Quill {

// An anonymous file in memory that holds the bytes.
Fd MemoryFile(const ByteVector& bytes);

// The bytes as a mapped file, between pages that cannot be touched. ASan also reports a read of
// what is left of the last page.
std::shared_ptr<MapFile> GuardedMapping(const ByteVector& bytes);

// How many descriptors the process has open.
inline ptrdiff_t OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// A folder of its own, removed on destruction with all that is in it.
class TempFolder {
 public:
  TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  ~TempFolder();

  const std::string& Path() const { return path_; }
  // Writes a file, in subfolders that `name` asks for, and returns its path.
  std::string Write(const std::string& name, const ByteVector& bytes) const;

 private:
  std::string path_;
};

}  // namespace Quill
