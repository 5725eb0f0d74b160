// SPDX-License-Identifier: Apache-2.0

#include "tests/support/temp_file.h"

#include <sanitizer/asan_interface.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace Quill {
namespace {

void CheckErrno(bool done) {
  if (!done) throw std::system_error(errno, std::generic_category());
}

}  // namespace

Fd MemoryFile(const ByteVector& bytes) {
  const int fd = memfd_create("quillon-test", MFD_CLOEXEC);
  CheckErrno(fd >= 0);
  CheckErrno(write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  return Fd(fd);
}

std::shared_ptr<MapFile> GuardedMapping(const ByteVector& bytes) {
  const size_t size = bytes.size();
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t mapped = (size + page - 1) / page * page;
  void* region = mmap(nullptr, page + mapped + page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  CheckErrno(region != MAP_FAILED);
  auto* front = static_cast<uint8_t*>(region);
  uint8_t* data = front + page;
  CheckErrno(mprotect(data, mapped, PROT_READ | PROT_WRITE) == 0);
  std::memcpy(data, bytes.data(), size);
  ASAN_POISON_MEMORY_REGION(data + size, mapped - size);
  return {new MapFile(data, size), [=](MapFile* mapping) {
            ASAN_UNPOISON_MEMORY_REGION(data + size, mapped - size);
            delete mapping;
            munmap(front, page);
            munmap(data + mapped, page);
          }};
}

TempFolder::TempFolder() : path_(std::filesystem::temp_directory_path() / "quillon-test-XXXXXX") {
  CheckErrno(mkdtemp(path_.data()) != nullptr);
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempFolder::Write(const std::string& name, const ByteVector& bytes) const {
  const auto path = std::filesystem::path(path_) / name;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<ptrdiff_t>(bytes.size()));
  CheckErrno(file.good());
  return path;
}

}  // namespace Quill
