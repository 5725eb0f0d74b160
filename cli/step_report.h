// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "cli/kernel_report.h"
#include "findings/steps_recorder.h"

namespace Quill::Tool {

// Sums the steps of a workflow up in one line, such as "labelled 2 of 2, certified 2", and adds
// them to the facts. `isDamaged`: the archive is a damaged package, which the library takes for a
// plain JAR.
void ReportSteps(const std::vector<Step>& steps, bool isDamaged, KernelReport& report);

// Returns true if a rule left the file without a label, which is no failure.
[[nodiscard]] bool IsLeftOut(const Step& step);

}  // namespace Quill::Tool
