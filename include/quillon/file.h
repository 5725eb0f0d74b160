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
  // Calls lseek(2) and returns its result.
  off_t Seek(unsigned long offset, int whence);
  // Returns the size of the file in bytes; 0 when fstat fails.
  uint64_t Size() const;

 private:
  int fd_;
};

// A private, read-only mapping of a whole file, unmapped on destruction. The descriptor that it was
// made from may be closed. When the file shrinks while it is mapped, a thread that reads the lost
// pages gets SIGBUS.
class QUILLON_EXPORT MapFile {
 public:
  // Takes ownership of a mapping made with mmap. `data` is its start, or null for none; `size` is
  // its length in bytes.
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

// Opens `path` read-only. On failure returns null and sets errno. Does not log.
[[nodiscard]] QUILLON_EXPORT std::unique_ptr<Fd> OpenFileRO(const std::string& path);

// Maps the whole file behind `fd`. Returns null when fstat or mmap fails, or memory runs out; mmap
// fails for an empty file. Does not log. `fd` is borrowed and may be closed once this returns.
[[nodiscard]] QUILLON_EXPORT std::unique_ptr<MapFile> MapFileRO(int fd);

}  // namespace Quill

// Reads the whole file into `out`. Returns false and logs one error line when the file cannot be
// opened, its size cannot be found, or memory is too small; `out` is then unchanged. A file that
// shrinks while it is read is no error: the missing bytes are zeros.
[[nodiscard]] QUILLON_EXPORT bool ReadFile(const std::string& path, std::vector<uint8_t>& out);
// The same. Returns an empty vector on failure.
[[nodiscard]] QUILLON_EXPORT std::vector<uint8_t> ReadFile(const std::string& path);
