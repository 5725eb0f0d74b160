// SPDX-License-Identifier: Apache-2.0

#include "cli/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace Quill::Tool {

Progress::Progress() : onTerminal_(isatty(STDERR_FILENO) != 0) {}

void Progress::Show(size_t doneCount, size_t totalCount) {
  constexpr std::chrono::seconds kPatience(1);
  if (!onTerminal_ || std::chrono::steady_clock::now() - start_ < kPatience) return;
  const std::string text = fmt::format("verified {} of {}", doneCount, totalCount);
  shownLength_ = text.size();
  std::fputs(("\r" + text).c_str(), stderr);
}

void Progress::Erase() {
  if (shownLength_ == 0) return;
  std::fputs(fmt::format("\r{:{}}\r", "", shownLength_).c_str(), stderr);
  shownLength_ = 0;
}

}  // namespace Quill::Tool
