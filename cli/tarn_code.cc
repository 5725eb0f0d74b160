// SPDX-License-Identifier: Apache-2.0

#include "cli/tarn_code.h"

#include <fmt/format.h>

#include <system_error>

#include <quillon/tarn.h>

#include "util/errno_name.h"

namespace Quill::Tool {
namespace {

constexpr uint32_t kErrnoBit = 0x80000000;

// Returns null for the code of an errno.
const char* WordsOf(uint32_t code) {
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
      return "the kernel's device cannot be opened, or it answered EPERM";
    case kErrnoBit:
      return "the kernel failed without an errno";
    default:
      return nullptr;
  }
}

}  // namespace

std::string ErrnoText(int error) {
  return fmt::format("{} ({})", std::generic_category().message(error), ErrnoName(error));
}

std::string TarnCodeText(uint32_t code) {
  if (const char* words = WordsOf(code)) {
    return fmt::format("{} (code {})", words,
                       code < 10 ? std::to_string(code) : fmt::format("{:#x}", code));
  }
  const int error = static_cast<int>(0U - code);
  return fmt::format("{} ({}, code {:#x})", std::generic_category().message(error),
                     ErrnoName(error), code);
}

}  // namespace Quill::Tool
