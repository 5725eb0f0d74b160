// SPDX-License-Identifier: Apache-2.0

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <quillon/file_name.h>

#include "integrity/libhx.h"
#include "integrity/tarn_abi.h"
#include "simulator/kernel_path.h"
#include "simulator/process.h"

// The functions that replace those of the C library. They get their names by an assembler label,
// because C libraries declare them differently. With a 64-bit long the variants for large files are
// the same functions.
#define TARNSIM_NAME(name) __asm__(name) __attribute__((visibility("default")))
static_assert(sizeof(long) == 8);

extern "C" {
int TarnsimStatvfs(const char* path, struct statvfs* info) TARNSIM_NAME("statvfs");
int TarnsimFstatvfs(int fd, struct statvfs* info) TARNSIM_NAME("fstatvfs");
int TarnsimOpen(const char* path, int flags, ...) TARNSIM_NAME("open");
int TarnsimIoctl(int fd, unsigned long code, ...) TARNSIM_NAME("ioctl");
int TarnsimFcntl(int fd, int command, ...) TARNSIM_NAME("fcntl");
FILE* TarnsimFopen(const char* path, const char* mode) TARNSIM_NAME("fopen");

int TarnsimStatvfs64(const char* path, struct statvfs* info) TARNSIM_NAME("statvfs64")
    __attribute__((alias("statvfs")));
int TarnsimFstatvfs64(int fd, struct statvfs* info) TARNSIM_NAME("fstatvfs64")
    __attribute__((alias("fstatvfs")));
int TarnsimOpen64(const char* path, int flags, ...) TARNSIM_NAME("open64")
    __attribute__((alias("open")));
int TarnsimFcntl64(int fd, int command, ...) TARNSIM_NAME("fcntl64")
    __attribute__((alias("fcntl")));
FILE* TarnsimFopen64(const char* path, const char* mode) TARNSIM_NAME("fopen64")
    __attribute__((alias("fopen")));

QUILLON_EXPORT int HxNewCertificate(int fd, const char* name, const uint8_t* data, size_t size);
}

namespace {

using tarnsim::Answer;
using tarnsim::Call;
using tarnsim::IsDevicePath;
using tarnsim::IsLegacyMarkPath;
using tarnsim::KernelTurn;
using tarnsim::ParseTaskFile;
using tarnsim::TarnInterface;

// An open device is an anonymous file with this name, so it is recognised even after dup and fork.
constexpr char kDeviceFileName[] = "task_integrity";
constexpr char kDeviceFilePath[] = "/memfd:task_integrity (deleted)";

// Returns the function that this one replaces.
template <typename Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Sets errno at the end of a call as a system call does: only when the call fails. Nothing that
// happens in between shows. Declare it first, so that it is destroyed last.
class ErrnoOfCall {
 public:
  ErrnoOfCall() = default;
  ErrnoOfCall(const ErrnoOfCall&) = delete;
  ErrnoOfCall& operator=(const ErrnoOfCall&) = delete;
  ~ErrnoOfCall() { errno = error_; }

  int Give(const Answer& answer) {
    if (answer.error != 0) error_ = answer.error;
    return answer.result;
  }
  // Passes on the next library's result, with its errno when it failed.
  int Forward(int result) {
    if (result == -1) error_ = errno;
    return result;
  }
  int Give(int error) { return Give({error == 0 ? 0 : -1, error}); }

 private:
  int error_ = errno;
};

}  // namespace

int TarnsimStatvfs(const char* path, struct statvfs* info) {
  static auto* const next = Next<int(const char*, struct statvfs*)>("statvfs");
  const bool isDevice = IsDevicePath(path);
  if (!isDevice && !IsLegacyMarkPath(path)) return next(path, info);

  ErrnoOfCall call;
  const KernelTurn turn;
  if (turn.Kernel() == nullptr) return call.Forward(next(path, info));
  const auto owner = isDevice ? TarnInterface::kDevice : TarnInterface::kLegacy;
  if (turn.Kernel()->rules.Interface() != owner) return call.Give(ENOENT);
  *info = {};
  return call.Give(0);
}

int TarnsimFstatvfs(int fd, struct statvfs* info) {
  static auto* const next = Next<int(int, struct statvfs*)>("fstatvfs");
  ErrnoOfCall call;
  const KernelTurn turn;
  const int result = call.Forward(next(fd, info));
  if (result == 0 && turn.Kernel() != nullptr && turn.Kernel()->rules.LiesOnReadOnlyFs(fd)) {
    info->f_flag |= ST_RDONLY;
  }
  return result;
}

int TarnsimOpen(const char* path, int flags, ...) {
  static auto* const next = Next<int(const char*, int, ...)>("open");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = va_arg(arguments, mode_t);  // has a value only when the call creates a file
  va_end(arguments);
  if (!IsDevicePath(path)) return next(path, flags, mode);

  ErrnoOfCall call;
  const KernelTurn turn;
  if (turn.Kernel() == nullptr) return call.Forward(next(path, flags, mode));
  if (const int error = turn.Kernel()->rules.Open(); error != 0) return call.Give(error);
  const int fd = memfd_create(kDeviceFileName, (flags & O_CLOEXEC) != 0 ? MFD_CLOEXEC : 0);
  return fd < 0 ? call.Give(errno) : fd;
}

int TarnsimIoctl(int fd, unsigned long code, ...) {
  static auto* const next = Next<int(int, unsigned long, ...)>("ioctl");
  va_list arguments;
  va_start(arguments, code);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  // Check the type first: it is cheaper than looking up the descriptor's file.
  const auto code32 = static_cast<uint32_t>(code);
  if (_IOC_TYPE(code32) != Quill::kTarnIoctlType) return next(fd, code, argument);

  ErrnoOfCall call;
  const KernelTurn turn;
  if (turn.Kernel() == nullptr || GetFilenameByFd(fd) != kDeviceFilePath) {
    return call.Forward(next(fd, code, argument));
  }
  return call.Give(turn.Kernel()->rules.Ioctl(code32, reinterpret_cast<uintptr_t>(argument)));
}

int TarnsimFcntl(int fd, int command, ...) {
  static auto* const next = Next<int(int, int, ...)>("fcntl");
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (command < Quill::kTarnFcntlFirst || command > Quill::kTarnFcntlLast) {
    return next(fd, command, argument);
  }

  ErrnoOfCall call;
  const KernelTurn turn;
  if (turn.Kernel() == nullptr || turn.Kernel()->rules.Interface() != TarnInterface::kLegacy) {
    return call.Forward(next(fd, command, argument));
  }
  return call.Give(turn.Kernel()->rules.Fcntl(fd, command, reinterpret_cast<uintptr_t>(argument)));
}

FILE* TarnsimFopen(const char* path, const char* mode) {
  static auto* const next = Next<FILE*(const char*, const char*)>("fopen");
  Call what{};
  int pid = 0;
  if (!ParseTaskFile(path, what, pid)) return next(path, mode);

  ErrnoOfCall call;
  const KernelTurn turn;
  if (turn.Kernel() == nullptr) {
    FILE* const file = next(path, mode);
    return call.Give(file == nullptr ? errno : 0) == 0 ? file : nullptr;
  }
  std::string text;
  if (call.Give(turn.Kernel()->rules.OpenText(what, pid, text)) != 0) return nullptr;
  const int fd = memfd_create("integrity", MFD_CLOEXEC);
  if (fd < 0) return nullptr;
  if (write(fd, text.data(), text.size()) < 0) text.clear();
  lseek(fd, 0, SEEK_SET);
  return fdopen(fd, "r");
}

int HxNewCertificate(int fd, const char* name, const uint8_t* data, size_t size) {
  static auto* const next = Next<int(int, const char*, const uint8_t*, size_t)>("HxNewCertificate");
  const KernelTurn turn;
  if (turn.Kernel() != nullptr) {
    return turn.Kernel()->rules.StoreCertificate(fd, name, data, size);
  }
  return next == nullptr ? 0 : next(fd, name, data, size);
}
