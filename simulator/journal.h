// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <quillon/export.h>

#include "simulator/call.h"
#include "simulator/kernel_setup.h"

namespace tarnsim {

// A request with its outcome. Successful opens are not recorded: the device is opened for each
// request.
struct Request {
  Call call = Call::kUnknown;
  TarnInterface interface = TarnInterface::kNone;
  uint32_t command = 0;      // ioctl code or fcntl command; 0 for text files and certificates
  std::optional<int> flags;  // of open(), for the device or the text file
  Bytes record;              // the device's record as it was sent
  uint64_t argument = 0;     // of the fcntl
  int target = 0;            // file descriptor, or pid; 0 for the caller's own text files
  std::string file;          // the path behind the descriptor
  Bytes label;               // the label to sign with, or the task's
  std::optional<uint32_t> integrity;
  std::string identity;  // of a certificate
  Bytes certificate;
  int result = 0;
  int error = 0;     // errno
  int64_t time = 0;  // microseconds of the clock that starts with the machine
};

// Formats the request as one line of JSON, without a line break: "request", "interface", "command",
// "flags", "fd" and "file" or "pid", "fileHex" when the path is not UTF-8, "label" decoded,
// "integrity", "identity" and "certificate", "result", "errno" and "time".
[[nodiscard]] QUILLON_EXPORT std::string ToJson(const Request& request);

}  // namespace tarnsim
