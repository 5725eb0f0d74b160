// SPDX-License-Identifier: Apache-2.0

#include "simulator/local_machine.h"

#include <dlfcn.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

#include <quillon/file_name.h>

#include "simulator/label.h"
#include "simulator/label_attribute.h"

namespace tarnsim {
namespace {

constexpr size_t kMaxLabelSize = sizeof(TarnExLabel) + 0xFFFF;

// Copies through a file, so that the machine's own kernel checks whether the program can access the
// memory. Calls `syscall` directly: a sanitizer would report the caller's bad address as our error.
bool CopyThroughFile(uint64_t from, uint64_t to, size_t size) {
  const int file = memfd_create("copy", MFD_CLOEXEC);
  if (file < 0) return false;
  const auto count = static_cast<long>(size);
  const bool copied = syscall(SYS_pwrite64, file, from, size, 0L) == count &&
                      syscall(SYS_pread64, file, to, size, 0L) == count;
  close(file);
  return copied;
}

using OneShotDigest = uint8_t* (*)(const uint8_t* data, size_t length, uint8_t* out);

// Loads the crypto library only when it is needed, and with local symbols. If it were linked, a
// preloaded simulator would replace the crypto functions of the program.
OneShotDigest FindDigest(const char* name) {
  static void* const library = [] {
    void* found = dlopen("libcrypto.so.0", RTLD_NOW | RTLD_LOCAL);
    return found != nullptr ? found : dlopen("libcrypto.so", RTLD_NOW | RTLD_LOCAL);
  }();
  return library == nullptr ? nullptr : reinterpret_cast<OneShotDigest>(dlsym(library, name));
}

int Identify(int fd, FileId& file) {
  struct stat info;
  if (fstat(fd, &info) != 0) return errno;
  file = {info.st_dev, info.st_ino};
  return 0;
}

}  // namespace

bool LocalMachine::CopyIn(uint64_t address, void* out, size_t size) {
  return CopyThroughFile(address, reinterpret_cast<uintptr_t>(out), size);
}

bool LocalMachine::CopyOut(uint64_t address, const void* data, size_t size) {
  return CopyThroughFile(reinterpret_cast<uintptr_t>(data), address, size);
}

bool LocalMachine::HasTask(int pid) { return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM); }

std::string LocalMachine::PathOf(int fd) { return GetFilenameByFd(fd); }

int LocalMachine::Digest(int fd, uint32_t algorithm, Bytes& out) {
  const char* name =
      algorithm == TARN_SHA1 ? "SHA1" : (algorithm == TARN_SHA256 ? "SHA256" : "SHA512");
  const OneShotDigest digest = FindDigest(name);
  if (digest == nullptr) return ENOPKG;

  struct stat info;
  if (fstat(fd, &info) != 0) return errno;
  if (!S_ISREG(info.st_mode)) return EINVAL;
  Bytes contents;
  Bytes block(1 << 16);
  ssize_t count;
  while ((count = pread(fd, block.data(), block.size(), static_cast<off_t>(contents.size()))) > 0) {
    contents.insert(contents.end(), block.begin(), block.begin() + count);
  }
  if (count < 0) return errno;
  out.resize(DigestSize(algorithm));
  digest(contents.data(), contents.size(), out.data());
  return 0;
}

int LocalMachine::LoadLabel(int fd, Bytes& out) {
  if (labelsInFiles_) {
    out.resize(kMaxLabelSize);
    const ssize_t size = fgetxattr(fd, kLabelAttribute, out.data(), out.size());
    out.resize(size < 0 ? 0 : static_cast<size_t>(size));
    return size < 0 ? errno : 0;
  }
  FileId file;
  if (const int error = Identify(fd, file); error != 0) return error;
  const auto found = labels_.find(file);
  if (found == labels_.end()) return ENODATA;
  out = found->second;
  return 0;
}

int LocalMachine::StoreLabel(int fd, const Bytes& label) {
  if (labelsInFiles_) {
    return fsetxattr(fd, kLabelAttribute, label.data(), label.size(), 0) == 0 ? 0 : errno;
  }
  FileId file;
  if (const int error = Identify(fd, file); error != 0) return error;
  labels_[file] = label;
  return 0;
}

int LocalMachine::RemoveLabel(int fd) {
  if (labelsInFiles_) return fremovexattr(fd, kLabelAttribute) == 0 ? 0 : errno;
  FileId file;
  if (const int error = Identify(fd, file); error != 0) return error;
  return labels_.erase(file) == 1 ? 0 : ENODATA;
}

}  // namespace tarnsim
