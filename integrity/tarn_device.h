// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include "integrity/tarn_abi.h"

namespace Quill {

enum class TarnInterface { kNone, kDevice, kLegacy };

// The kernel's interface as it is now; the device goes first.
TarnInterface FindTarnInterface();

// The result code of a kernel call that failed with `error`.
constexpr uint32_t TarnErrnoCode(int error) {
  // Deliberate: EPERM gives the code of a device that cannot be opened.
  return static_cast<uint32_t>(-error) | 0x80000000u;
}

// Opens the device, sends it the one request and closes it. Returns TARN_OK with the reply in
// `request`, TARN_CANNOT_OPEN, or the code of the ioctl's errno; errno is then the failing call's.
uint32_t CallTarnDevice(unsigned ioctlCode, TarnRequest& request);

}  // namespace Quill
