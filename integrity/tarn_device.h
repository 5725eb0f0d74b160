// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include "integrity/tarn_abi.h"

namespace Quill {

enum class TarnInterface { kNone, kDevice, kLegacy };

// Looks for the kernel's interface. The device is preferred to the legacy one.
[[nodiscard]] TarnInterface FindTarnInterface();

// Returns the result code of a kernel call that failed with errno `error`.
[[nodiscard]] constexpr uint32_t TarnErrnoCode(int error) {
  // Deliberate: EPERM gives the code of a device that cannot be opened.
  return static_cast<uint32_t>(-int64_t{error}) | 0x80000000u;
}

// Opens the device, sends one request and closes the device. Returns TARN_OK with the reply in
// `request`, TARN_CANNOT_OPEN, or the code of the ioctl's errno. On failure errno is what the
// failing call left.
[[nodiscard]] uint32_t CallTarnDevice(unsigned ioctlCode, TarnRequest& request);

}  // namespace Quill
