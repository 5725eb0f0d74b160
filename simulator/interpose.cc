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
#include <cstring>
#include <string>

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
// Fortified programs call those that end in "_2" when they create no file.
int TarnsimOpenChecked(const char* path, int flags) TARNSIM_NAME("__open_2");
int TarnsimOpen64Checked(const char* path, int flags) TARNSIM_NAME("__open64_2")
    __attribute__((alias("__open_2")));
int TarnsimOpenat(int folder, const char* path, int flags, ...) TARNSIM_NAME("openat");
int TarnsimOpenat64(int folder, const char* path, int flags, ...) TARNSIM_NAME("openat64")
    __attribute__((alias("openat")));
int TarnsimOpenatChecked(int folder, const char* path, int flags) TARNSIM_NAME("__openat_2");
int TarnsimOpenat64Checked(int folder, const char* path, int flags) TARNSIM_NAME("__openat64_2")
    __attribute__((alias("__openat_2")));
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

// An open device is an anonymous file whose name is this and the flags that it was opened with, so
// it is recognised even after dup and fork.
constexpr char kDeviceFileName[] = "task_integrity:";
constexpr char kDeviceFilePath[] = "/memfd:task_integrity:";

// Returns false if the descriptor is no open device.
bool FindDeviceFlags(int fd, int& flags) {
  const std::string path = GetFilenameByFd(fd);
  if (path.compare(0, strlen(kDeviceFilePath), kDeviceFilePath) != 0) return false;
  flags = static_cast<int>(std::strtol(path.c_str() + strlen(kDeviceFilePath), nullptr, 10));
  return true;
}

// Returns the flags of open that belong to a mode of fopen.
int FlagsOfMode(const char* mode) {
  const bool isUpdate = strchr(mode, '+') != nullptr;
  const int close = strchr(mode, 'e') != nullptr ? O_CLOEXEC : 0;
  if (mode[0] == 'r') return close | (isUpdate ? O_RDWR : O_RDONLY);
  return close | O_CREAT | (mode[0] == 'a' ? O_APPEND : O_TRUNC) | (isUpdate ? O_RDWR : O_WRONLY);
}

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

// Opens a legacy text file. Returns a descriptor, or -1 with errno set by `call`.
int OpenTaskFile(KernelTurn& turn, ErrnoOfCall& call, Call what, int pid, int flags) {
  std::string text;
  const int error = turn.Kernel()->rules.OpenText(what, pid, flags, text);
  if (error != 0) return call.Give(error);
  const int fd = memfd_create("integrity", (flags & O_CLOEXEC) != 0 ? MFD_CLOEXEC : 0);
  if (fd < 0) return call.Give(errno);
  if (write(fd, text.data(), text.size()) < 0) text.clear();
  lseek(fd, 0, SEEK_SET);
  return fd;
}

int OpenDevice(KernelTurn& turn, ErrnoOfCall& call, int flags) {
  if (const int error = turn.Kernel()->rules.Open(flags); error != 0) return call.Give(error);
  const std::string name = kDeviceFileName + std::to_string(flags);
  const int fd = memfd_create(name.c_str(), (flags & O_CLOEXEC) != 0 ? MFD_CLOEXEC : 0);
  return fd < 0 ? call.Give(errno) : fd;
}

// Opens what the simulated kernel has at this path, and anything else by `forward`.
template <typename Forward>
int OpenOr(const char* path, int flags, Forward forward) {
  Call what{};
  int pid = 0;
  const bool isDevice = IsDevicePath(path);
  if (!isDevice && !ParseTaskFile(path, what, pid)) return forward();
  ErrnoOfCall call;
  KernelTurn turn;
  if (turn.Kernel() == nullptr) return call.Forward(forward());
  return isDevice ? OpenDevice(turn, call, flags) : OpenTaskFile(turn, call, what, pid, flags);
}

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
  return OpenOr(path, flags, [=] { return next(path, flags, mode); });
}

int TarnsimOpenChecked(const char* path, int flags) {
  static auto* const next = Next<int(const char*, int)>("__open_2");
  return OpenOr(path, flags, [=] { return next(path, flags); });
}

int TarnsimOpenat(int folder, const char* path, int flags, ...) {
  static auto* const next = Next<int(int, const char*, int, ...)>("openat");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = va_arg(arguments, mode_t);
  va_end(arguments);
  return OpenOr(path, flags, [=] { return next(folder, path, flags, mode); });
}

int TarnsimOpenatChecked(int folder, const char* path, int flags) {
  static auto* const next = Next<int(int, const char*, int)>("__openat_2");
  return OpenOr(path, flags, [=] { return next(folder, path, flags); });
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
  int flags = 0;
  if (turn.Kernel() == nullptr || !FindDeviceFlags(fd, flags)) {
    return call.Forward(next(fd, code, argument));
  }
  return call.Give(
      turn.Kernel()->rules.Ioctl(code32, reinterpret_cast<uintptr_t>(argument), flags));
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
  KernelTurn turn;
  if (turn.Kernel() == nullptr) {
    FILE* const file = next(path, mode);
    return call.Give(file == nullptr ? errno : 0) == 0 ? file : nullptr;
  }
  const int fd = OpenTaskFile(turn, call, what, pid, FlagsOfMode(mode));
  return fd < 0 ? nullptr : fdopen(fd, "r");
}

int HxNewCertificate(int fd, const char* name, const uint8_t* data, size_t size) {
  static auto* const next = Next<int(int, const char*, const uint8_t*, size_t)>("HxNewCertificate");
  {
    ErrnoOfCall call;
    const KernelTurn turn;
    if (turn.Kernel() != nullptr) {
      return call.Give(turn.Kernel()->rules.StoreCertificate(fd, name, data, size));
    }
  }
  return next == nullptr ? 0 : next(fd, name, data, size);
}
