// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>

#include <cerrno>

#include <quillon/system.h>
#include <quillon/tarn.h>

#include "integrity/tarn_device.h"

namespace {

using Quill::TarnInterface;

// Conditions that are checked before the kernel is called.
enum class Gate { kNone, kWritableFs, kWritableFsAndTaskIntegrity };

struct FileCommand {
  unsigned ioctlCode;
  int fcntlCommand;
  Gate gate;
};

constexpr FileCommand kSign = {Quill::kTarnIoctlSign, Quill::kTarnFcntlSign,
                               Gate::kWritableFsAndTaskIntegrity};
constexpr FileCommand kEdit = {Quill::kTarnIoctlEdit, Quill::kTarnFcntlEdit,
                               Gate::kWritableFsAndTaskIntegrity};
constexpr FileCommand kClose = {Quill::kTarnIoctlClose, Quill::kTarnFcntlClose, Gate::kWritableFs};
constexpr FileCommand kVerifySync = {Quill::kTarnIoctlVerifySync, Quill::kTarnFcntlVerifySync,
                                     Gate::kNone};
constexpr FileCommand kVerify = {Quill::kTarnIoctlVerify, Quill::kTarnFcntlVerify, Gate::kNone};

uint32_t PassGate(Gate gate, int fd) {
  if (gate == Gate::kNone) return TARN_OK;
  if (ReadOnlyFS(fd)) return TARN_READ_ONLY;
  if (gate == Gate::kWritableFs) return TARN_OK;

  // Deliberate: without any integrity subsystem this is TARN_FAILED, not TARN_NO_SUBSYSTEM.
  uint32_t integrity = 0;
  if (TarnTaskReadIntegrity(0, TARN_WAIT, &integrity) != TARN_OK) return TARN_FAILED;
  return integrity == 0 || integrity == TARN_INTEGRITY_PENDING ? TARN_NOT_ALLOWED : TARN_OK;
}

uint32_t RunFileCommand(const FileCommand& command, int fd, const void* label = nullptr) {
  const uint32_t gateResult = PassGate(command.gate, fd);
  if (gateResult != TARN_OK) return gateResult;

  switch (Quill::FindTarnInterface()) {
    case TarnInterface::kDevice: {
      Quill::TarnRequest request;
      request.target = fd;
      request.wordA = reinterpret_cast<uintptr_t>(label);
      return Quill::CallTarnDevice(command.ioctlCode, request);
    }
    case TarnInterface::kLegacy:
      errno = 0;
      // Deliberate: unlike the device's ioctl, any result but 0 is a failure, with or without an
      // errno.
      return fcntl(fd, command.fcntlCommand, label) == 0 ? TARN_OK : Quill::TarnErrnoCode(errno);
    case TarnInterface::kNone:
      break;
  }
  return TARN_NO_SUBSYSTEM;
}

}  // namespace

uint32_t TarnSignFd(int fd, const void* label) { return TarnSignFdCommon(fd, label); }

uint32_t TarnSignFdEx(int fd, const void* label) { return TarnSignFdCommon(fd, label); }

uint32_t TarnSignFdCommon(int fd, const void* label) {
  return label == nullptr ? TARN_BAD_ARGUMENT : RunFileCommand(kSign, fd, label);
}

uint32_t TarnEditFd(int fd) { return RunFileCommand(kEdit, fd); }

uint32_t TarnCloseFd(int fd) { return RunFileCommand(kClose, fd); }

uint32_t TarnVerifyFdSync(int fd) { return RunFileCommand(kVerifySync, fd); }

uint32_t TarnVerifyFd(int fd) { return RunFileCommand(kVerify, fd); }
