// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <quillon/export.h>

namespace Quill {

// An owned file descriptor, closed on destruction unless it is -1. Closing leaves errno alone.
class QUILLON_EXPORT Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  ~Fd();

  int GetFd() const;
  // lseek(2); returns its result.
  off_t Seek(unsigned long offset, int whence);
  // Size in bytes of the file behind the descriptor; 0 when fstat fails.
  uint64_t Size() const;

 private:
  int fd_;
};

// A private, read-only mapping of a whole file, unmapped on destruction. It does not depend on the
// descriptor that it was made from. A file that is cut short while it is mapped raises SIGBUS in
// whoever reads the vanished pages.
class QUILLON_EXPORT MapFile {
 public:
  // Takes over a mapping made with mmap: `data` is its start or null, `size` its length in bytes.
  MapFile(const uint8_t* data, uint64_t size) : data_(data), size_(size) {}
  MapFile(const MapFile&) = delete;
  MapFile& operator=(const MapFile&) = delete;
  ~MapFile();

  const uint8_t* Data() const;
  uint64_t Size() const;

 private:
  const uint8_t* data_;
  uint64_t size_;
};

// Opens `path` read-only. Returns null, without logging and with errno set, when that fails.
QUILLON_EXPORT std::unique_ptr<Fd> OpenFileRO(const std::string& path);

// Maps the whole file behind `fd`. Returns null, without logging, when fstat or mmap fails; an
// empty file is such a failure. `fd` is borrowed and may be closed once this returns.
QUILLON_EXPORT std::unique_ptr<MapFile> MapFileRO(int fd);

}  // namespace Quill

// Reads the whole file into `out`. Returns false and logs one error line when the file cannot be
// opened, or its size cannot be had or held in memory; `out` is then unchanged. A file that shrinks
// while it is read is not reported: the missing bytes are zeros.
QUILLON_EXPORT bool ReadFile(const std::string& path, std::vector<uint8_t>& out);
// The same, with an empty vector for failure.
QUILLON_EXPORT std::vector<uint8_t> ReadFile(const std::string& path);
