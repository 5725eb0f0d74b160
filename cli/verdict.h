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
// and of one IsGoodApk call, which answered `isGoodApk`.
Verdict Judge(bool isGoodApk, const std::vector<LogLine>& log);

}  // namespace Quill::Tool
