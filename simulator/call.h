// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>

#include <quillon/export.h>

namespace tarnsim {

// The requests that the kernel, or libhx.so, can receive.
enum class Call {
  kOpen,  // of the device node
  kReadIntegrity,
  kReadLabel,
  kReadResetFile,
  kSign,
  kEdit,
  kClose,
  kVerifySync,
  kVerify,
  kCertificate,
  kUnknown,  // a request that the device does not have
};

// Returns the call's name in journals and settings, such as "verify-sync".
[[nodiscard]] QUILLON_EXPORT const char* NameOf(Call call);

// Finds the call by the name that NameOf gives it. Returns false when there is none.
[[nodiscard]] bool CallByName(const std::string& name, Call& call);

// Find the call by the device's request code, or by the legacy fcntl command. Return false when
// there is none.
[[nodiscard]] bool CallByIoctl(uint32_t code, Call& call);
[[nodiscard]] bool CallByFcntl(int command, Call& call);

// Returns true for the commands on a file, which both interfaces have.
[[nodiscard]] bool IsFileCommand(Call call);

}  // namespace tarnsim
