// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <new>
#include <stdexcept>

#include <quillon/file.h>

#include "util/errno_keeper.h"
#include "util/log.h"
#include "util/nothrow.h"

namespace Quill {

Fd::~Fd() {
  if (fd_ == -1) return;
  const SavedErrno savedErrno;  // the caller's log line may still need it
  close(fd_);                   // never repeated: after EINTR, Linux has already closed it
}

int Fd::GetFd() const { return fd_; }

off_t Fd::Seek(unsigned long offset, int whence) {
  return lseek(fd_, static_cast<off_t>(offset), whence);
}

uint64_t Fd::Size() const {
  struct stat info;
  return fstat(fd_, &info) == 0 ? static_cast<uint64_t>(info.st_size) : 0;
}

MapFile::~MapFile() {
  if (data_ != nullptr) munmap(const_cast<uint8_t*>(data_), size_);
  data_ = nullptr;
  size_ = 0;
}

const uint8_t* MapFile::Data() const { return data_; }

uint64_t MapFile::Size() const { return size_; }

std::unique_ptr<Fd> OpenFileRO(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY);
  if (fd < 0) return nullptr;
  auto file = MakeUniqueNoThrow<Fd>(fd);
  if (!file) {
    close(fd);
    errno = ENOMEM;
  }
  return file;
}

std::unique_ptr<MapFile> MapFileRO(int fd) {
  struct stat info;
  if (fstat(fd, &info) != 0) return nullptr;
  const auto size = static_cast<uint64_t>(info.st_size);
  void* data = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
  if (data == MAP_FAILED) return nullptr;
  auto mapping = MakeUniqueNoThrow<MapFile>(static_cast<const uint8_t*>(data), size);
  if (!mapping) munmap(data, size);
  return mapping;
}

}  // namespace Quill

namespace {

// Replaces `out` with `size` zeros. Returns false, and leaves `out`, when memory is too small.
bool FillWithZeros(uint64_t size, std::vector<uint8_t>& out) {
  try {
    out = std::vector<uint8_t>(size);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const std::length_error&) {
    return false;
  }
}

}  // namespace

bool ReadFile(const std::string& path, std::vector<uint8_t>& out) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    QUILL_LOGE("Can't open file: %s\n", path.c_str());
    return false;
  }
  file.seekg(0, std::ios::end);
  std::streamoff size = file.tellg();
  // A directory can be opened too, and its size depends on its file system.
  struct stat info;
  if (stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) size = -1;
  file.seekg(0, std::ios::beg);
  if (size < 0 || !FillWithZeros(static_cast<uint64_t>(size), out)) {
    QUILL_LOGE("Can't read file: %s (streamoff=%lld)\n", path.c_str(),
               static_cast<long long>(size));
    return false;
  }
  file.read(reinterpret_cast<char*>(out.data()), size);
  return true;
}

std::vector<uint8_t> ReadFile(const std::string& path) {
  std::vector<uint8_t> contents;
  if (!ReadFile(path, contents)) return {};
  return contents;
}
