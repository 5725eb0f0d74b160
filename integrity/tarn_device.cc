// SPDX-License-Identifier: Apache-2.0

#include "integrity/tarn_device.h"

#include <fcntl.h>
#include <sys/statvfs.h>

#include <cerrno>

#include <quillon/file.h>

namespace Quill {
namespace {

bool Exists(const char* path) {
  struct statvfs info;
  return statvfs(path, &info) == 0;
}

}  // namespace

TarnInterface FindTarnInterface() {
  if (Exists(kTarnDevice)) return TarnInterface::kDevice;
  return Exists(kTarnLegacyValue) ? TarnInterface::kLegacy : TarnInterface::kNone;
}

uint32_t CallTarnDevice(unsigned ioctlCode, TarnRequest& request) {
  const Fd device(open(kTarnDevice, O_RDWR));
  if (device.GetFd() < 0) return TARN_CANNOT_OPEN;
  errno = 0;
  // Deliberate: a result other than 0 without an errno is a success.
  if (ioctl(device.GetFd(), ioctlCode, &request) == 0 || errno == 0) return TARN_OK;
  return TarnErrnoCode(errno);
}

}  // namespace Quill
