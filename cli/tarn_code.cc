// SPDX-License-Identifier: Apache-2.0

#include "cli/tarn_code.h"

#include <fmt/format.h>

#include <system_error>

#include <quillon/tarn.h>

namespace Quill::Tool {

std::string TarnCodeText(uint32_t code) {
  switch (code) {
    case TARN_OK:
      return "success";
    case TARN_BAD_ARGUMENT:
      return "bad argument";
    case TARN_NO_MEMORY:
      return "out of memory";
    case TARN_NOT_ALLOWED:
      return "this task's integrity does not allow it";
    case TARN_READ_ONLY:
      return "read-only file system";
    case TARN_NO_SUBSYSTEM:
      return "this kernel has no integrity subsystem";
    case TARN_FAILED:
      return "the kernel's answer could not be read";
    case TARN_CANNOT_OPEN:
      return "the kernel's device cannot be opened";
    default:
      return fmt::format("{} (code {:#x})",
                         std::generic_category().message(static_cast<int>(0U - code)), code);
  }
}

}  // namespace Quill::Tool
