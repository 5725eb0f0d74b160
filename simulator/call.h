// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>

#include <quillon/export.h>

namespace tarnsim {

// The requests that the kernel, or libhx.so, can receive. A new one needs a row in call.cc, and a
// case in TarnKernel::CarryOut; the compiler reports where they are missing.
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

// What a call is about, which is what a request's `target` means.
enum class Subject {
  kNone,
  kFile,  // an open descriptor
  kTask,  // a pid
};

// Returns the call's name in journals and settings, such as "verify-sync".
[[nodiscard]] QUILLON_EXPORT const char* NameOf(Call call);

// Finds the call by the name that NameOf gives it. Returns false when there is none.
[[nodiscard]] bool CallByName(const std::string& name, Call& call);

// Find the call by the device's request code, or by the legacy fcntl command. Return false when
// there is none.
[[nodiscard]] bool CallByIoctl(uint32_t code, Call& call);
[[nodiscard]] bool CallByFcntl(int command, Call& call);

// Returns true when a request of the device has the type and the number of this code, whatever size
// the code states.
[[nodiscard]] bool HasIoctlNumber(uint32_t code);

[[nodiscard]] Subject SubjectOf(Call call);

}  // namespace tarnsim
