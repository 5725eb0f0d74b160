// SPDX-License-Identifier: Apache-2.0

#include "cli/logged_run.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <vector>

#include "cli/log_recorder.h"
#include "cli/output.h"
#include "cli/package_evidence.h"
#include "cli/step_report.h"
#include "util/escape.h"

namespace Quill::Tool {

KernelReport RunLogged(int archive, bool json, const std::function<void()>& entryPoint) {
  LogRecorder::Install();
  const LogRecorder log;
  const StepRecorder recorder;
  entryPoint();
  KernelReport report;
  auto lines = nlohmann::ordered_json::array();
  for (const LogLine& line : log.Lines()) {
    if (!json) PrintErrorLine(fmt::format("{} {}", line.priority, line.text));
    lines.push_back({std::string(1, line.priority), EscapeInvalidUtf8(line.text)});
    if (line.priority == 'E') report.status = kFailed;
  }
  const std::vector<Step>& steps = recorder.Steps();
  const bool isLeftOut = std::any_of(steps.begin(), steps.end(), IsLeftOut);
  const bool isDamaged = isLeftOut && archive != -1 && IsDamagedPackage(archive);
  ReportSteps(steps, isDamaged, report);
  if (report.status == kDone && isLeftOut) report.status = isDamaged ? kFailed : kUnverified;
  if (json) report.facts["log"] = lines;
  return report;
}

}  // namespace Quill::Tool
