// SPDX-License-Identifier: Apache-2.0

#include "cli/step_report.h"

#include <fmt/format.h>

#include <algorithm>

#include <quillon/tarn.h>

#include "cli/output.h"
#include "cli/tarn_code.h"
#include "integrity/libhx.h"
#include "util/escape.h"

namespace Quill::Tool {
namespace {

constexpr struct {
  const char* name;
  const char* participle;
} kKinds[] = {{"label", "labelled"}, {"edit", "opened for editing"}, {"certificate", "certified"}};

const auto& NamesOf(StepKind kind) { return kKinds[static_cast<size_t>(kind)]; }

bool IsDone(const Step& step) {
  if (step.end != StepEnd::kAnswered) return false;
  return step.code == 0 || (step.kind == StepKind::kCertify && step.code == kHxAlsoStored);
}

// Says why a step is not done.
std::string ReasonOf(const Step& step, bool isDamaged) {
  if (isDamaged && IsLeftOut(step)) {
    return "the package is damaged, its AndroidManifest.xml cannot be read";
  }
  switch (step.end) {
    case StepEnd::kAnswered:
      break;
    case StepEnd::kOutsideHalyx:
      return "the package is outside the Halyx feature";
    case StepEnd::kJarNotVerified:
      return "a plain JAR, which the kernel does not verify: " + TarnCodeText(step.code);
    case StepEnd::kNoArchive:
      return "the package is no usable ZIP archive";
    case StepEnd::kPackageRefused:
      return "the package does not verify; quillon verify says why";
    case StepEnd::kNotHashed:
      return "the digest of the file cannot be computed";
    case StepEnd::kNotOpened:
      return ErrnoText(static_cast<int>(step.code));
  }
  if (step.kind != StepKind::kCertify) return TarnCodeText(step.code);
  return fmt::format("refused, result {}", static_cast<int>(step.code));
}

// Returns "labelled 1 of 2" or the like; empty without a step of this kind.
std::string CountOf(const std::vector<Step>& steps, StepKind kind) {
  const auto all = std::count_if(steps.begin(), steps.end(),
                                 [kind](const Step& step) { return step.kind == kind; });
  const auto done = std::count_if(steps.begin(), steps.end(), [kind](const Step& step) {
    return step.kind == kind && IsDone(step);
  });
  if (all == 0) return "";
  const bool isPlain = kind == StepKind::kCertify && all == done;
  return fmt::format("{} {}", NamesOf(kind).participle, done) +
         (isPlain ? "" : fmt::format(" of {}", all));
}

std::string CountsOf(const std::vector<Step>& steps) {
  std::string counts;
  for (const StepKind kind : {StepKind::kLabel, StepKind::kEdit, StepKind::kCertify}) {
    const std::string count = CountOf(steps, kind);
    counts += (counts.empty() || count.empty() ? "" : ", ") + count;
  }
  return counts.empty() ? "nothing was done" : counts;
}

}  // namespace

bool IsLeftOut(const Step& step) {
  return step.end == StepEnd::kOutsideHalyx || step.end == StepEnd::kJarNotVerified;
}

void ReportSteps(const std::vector<Step>& steps, bool isDamaged, KernelReport& report) {
  const Step* first = nullptr;  // of those that are not done
  size_t undone = 0;
  bool isOneReason = true;
  report.facts["steps"] = nlohmann::ordered_json::array();
  for (const Step& step : steps) {
    const std::string reason = IsDone(step) ? "" : ReasonOf(step, isDamaged);
    if (!IsDone(step)) {
      if (first == nullptr) first = &step;
      isOneReason = isOneReason && reason == ReasonOf(*first, isDamaged);
      ++undone;
    }
    report.facts["steps"].push_back({{"step", NamesOf(step.kind).name},
                                     {"file", EscapeInvalidUtf8(step.file)},
                                     {"done", IsDone(step)},
                                     {"reason", nullptr}});
    if (!reason.empty()) report.facts["steps"].back()["reason"] = reason;
  }
  report.summary = CountsOf(steps);
  if (first == nullptr) return;
  const std::string reason = ReasonOf(*first, isDamaged);
  if (undone == steps.size() && isOneReason) {
    report.summary += ": " + reason;
    return;
  }
  report.summary += fmt::format("; {} not {}: {}", FileText(first->file),
                                NamesOf(first->kind).participle, reason);
  if (undone > 1) report.summary += fmt::format(", and {} more", undone - 1);
}

}  // namespace Quill::Tool
