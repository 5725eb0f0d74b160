// SPDX-License-Identifier: Apache-2.0

#include "cli/logged_run.h"

#include <fmt/format.h>

#include <string_view>
#include <vector>

#include "cli/log_recorder.h"
#include "cli/output.h"
#include "cli/package_evidence.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

// The lines that the library logs when its rules leave a file without a label, and the reasons.
constexpr struct {
  std::string_view lineStart;
  const char* reason;
} kUnlabelled[] = {
    {"HALYX permissions are absent.", "the package is outside the Halyx feature"},
    {"TARN can't verify a file ", "a plain JAR, which the kernel does not verify"},
};

// Returns null when no rule left a file without a label.
const char* WhyNothingLabelled(const std::vector<LogLine>& log) {
  for (const LogLine& line : log) {
    for (const auto& [lineStart, reason] : kUnlabelled) {
      if (StartsWith(line.text, lineStart)) return reason;
    }
  }
  return nullptr;
}

}  // namespace

ExitStatus RunLogged(int archive, const std::function<void()>& entryPoint) {
  LogRecorder::Install();
  const LogRecorder log;
  entryPoint();
  ExitStatus status = kDone;
  for (const LogLine& line : log.Lines()) {
    PrintErrorLine(fmt::format("{} {}", line.priority, line.text));
    if (line.priority == 'E') status = kFailed;
  }
  const char* reason = WhyNothingLabelled(log.Lines());
  if (status != kDone || reason == nullptr) return status;
  if (archive != -1 && IsDamagedPackage(archive)) {
    PrintDiagnostic(
        "nothing labelled: the package is damaged, its AndroidManifest.xml cannot be read");
    return kFailed;
  }
  PrintDiagnostic(fmt::format("nothing labelled: {}", reason));
  return kUnverified;
}

}  // namespace Quill::Tool
