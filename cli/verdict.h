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

// What became of a package that the library has looked at. `log` holds its lines of construction
// and of one IsGoodApk call, which answered `isGoodApk`. No verdict, kUnreadable, on one that it
// could not map: its JAR signature alone was looked at then, though it may have a signing block.
Verdict Judge(bool isGoodApk, const std::vector<LogLine>& log);

}  // namespace Quill::Tool
