// SPDX-License-Identifier: Apache-2.0

#include "simulator/local_machine.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include <quillon/file_name.h>

#include "simulator/diagnostic.h"
#include "simulator/label.h"

namespace tarnsim {
namespace {

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

// Reads the file even if the descriptor is open for writing only, as a kernel does.
int ReadWhole(int fd, Bytes& out) {
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  const int own = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const int reader = own >= 0 ? own : fd;
  Bytes block(1 << 16);
  ssize_t count;
  while ((count = pread(reader, block.data(), block.size(), static_cast<off_t>(out.size()))) > 0) {
    out.insert(out.end(), block.begin(), block.begin() + count);
  }
  const int error = count < 0 ? errno : 0;
  if (own >= 0) close(own);
  return error;
}

int Identify(int fd, FileId& file) {
  struct stat info;
  if (fstat(fd, &info) != 0) return errno;
  file = {info.st_dev, info.st_ino};
  return 0;
}

// The program sees a refusal that no kernel gives.
void ReportUnkeptLabel(int fd, const std::string& folder, int error) {
  PrintDiagnostic("cannot keep the label of " + GetFilenameByFd(fd) + " in its attribute or in " +
                  (folder.empty() ? "TARNSIM_LABELS, which is not set" : folder) + ": " +
                  std::generic_category().message(error));
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
  if (const int error = ReadWhole(fd, contents); error != 0) return error;
  out.resize(DigestSize(algorithm));
  digest(contents.data(), contents.size(), out.data());
  return 0;
}

int LocalMachine::LoadLabel(int fd, Bytes& out) {
  if (store_) return store_->Load(fd, out);
  FileId file;
  if (const int error = Identify(fd, file); error != 0) return error;
  const auto found = labels_.find(file);
  if (found == labels_.end()) return ENODATA;
  out = found->second;
  return 0;
}

int LocalMachine::StoreLabel(int fd, const Bytes& label) {
  if (store_) {
    const int error = store_->Store(fd, label);
    if (error != 0 && error != EROFS) ReportUnkeptLabel(fd, store_->Folder(), error);
    return error;
  }
  FileId file;
  if (const int error = Identify(fd, file); error != 0) return error;
  labels_[file] = label;
  return 0;
}

int LocalMachine::RemoveLabel(int fd) {
  if (store_) return store_->Remove(fd);
  FileId file;
  if (const int error = Identify(fd, file); error != 0) return error;
  return labels_.erase(file) == 1 ? 0 : ENODATA;
}

}  // namespace tarnsim
