// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <chrono>
#include <cstddef>

namespace Quill::Tool {

// Shows a line such as "verified 12 of 200" on standard error if that is a terminal. The line
// appears after one second of work. Erase it before writing anything else.
class Progress {
 public:
  Progress();

  void Show(size_t doneCount, size_t totalCount);
  void Erase();

 private:
  const bool onTerminal_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  size_t shownLength_ = 0;  // columns
};

}  // namespace Quill::Tool
