// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <filesystem>
#include <iterator>
#include <memory>
#include <string>

#include <quillon/file.h>

#include "tests/support/wire.h"

namespace Quill {

// Returns an anonymous file in memory that holds the bytes.
Fd MemoryFile(const ByteVector& bytes);

// Returns the bytes as a mapped file between two pages that cannot be read. AddressSanitizer also
// reports a read between the last byte and the end of its page.
std::shared_ptr<MapFile> GuardedMapping(const ByteVector& bytes);

// Returns how many descriptors the process has open.
inline ptrdiff_t OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// A new temporary folder, which the destructor removes with all its files.
class TempFolder {
 public:
  TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  ~TempFolder();

  const std::string& Path() const { return path_; }
  // Writes a file and returns its path. Makes the folders that `name` has.
  std::string Write(const std::string& name, const ByteVector& bytes) const;

 private:
  std::string path_;
};

}  // namespace Quill
