// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cerrno>

namespace Quill {

// Saves errno on construction and restores it on destruction. Declare one before anything whose
// cleanup may change errno: what is declared first is destroyed last.
class SavedErrno {
 public:
  SavedErrno() = default;
  SavedErrno(const SavedErrno&) = delete;
  SavedErrno& operator=(const SavedErrno&) = delete;
  ~SavedErrno() { errno = value_; }

 private:
  // Volatile, because compilers assume that free() leaves errno alone, and would drop the restore.
  const volatile int value_ = errno;
};

}  // namespace Quill
