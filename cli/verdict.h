// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/log_recorder.h"

namespace Quill::Tool {

struct Verdict {
  ExitStatus status = kDone;  // kDone for a verified package
  std::string reason;         // in words; empty for a verified package
};

// Judges a package from the library's results. `log` has the lines from opening the package and
// from one call of IsGoodApk, which returned `isGoodApk`. A package that could not be mapped gets
// kUnreadable: the library then checks only its JAR signature and does not see a signing block.
[[nodiscard]] Verdict Judge(bool isGoodApk, const std::vector<LogLine>& log);

}  // namespace Quill::Tool
