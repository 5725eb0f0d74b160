// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include <quillon/tarn.h>

#include "cli/commands.h"
#include "cli/help.h"
#include "cli/kernel_command.h"
#include "cli/tarn_code.h"
#include "cli/usage.h"
#include "integrity/label_owner.h"
#include "util/escape.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

// Adds a line and a field; `code` says whether there is an answer.
void AddAnswer(const char* title, const char* field, uint32_t code, const std::string& text,
               const nlohmann::ordered_json& value, KernelReport& report) {
  if (code == TARN_OK) {
    report.lines.push_back(fmt::format("{}: {}", title, text));
    report.facts[field] = value;
    return;
  }
  report.lines.push_back(fmt::format("{}: not known, {}", title, TarnCodeText(code)));
  report.facts[field] = nullptr;
  report.facts["failures"].push_back({{"field", field}, {"reason", TarnCodeText(code)}});
  report.status = kFailed;
}

void AddLabel(int pid, KernelReport& report) {
  TarnLabel* label = nullptr;
  const uint32_t code = TarnTaskGetIntegrityLabel(pid, &label);
  const LabelOwner owner(label);
  if (code != TARN_OK || label == nullptr) {
    AddAnswer("label", "label", code, "none", nullptr, report);
    return;
  }
  const std::string digits = ToHex(label->data, label->length);
  AddAnswer("label", "label", code, fmt::format("{} ({} bytes)", digits, size_t{label->length}),
            digits, report);
}

void AddResetFile(int pid, bool isLegacy, KernelReport& report) {
  TarnResetFile* record = nullptr;
  const uint32_t code = TarnGetResetFile(pid, &record);
  const ResetFileOwner owner(record);
  if (code == TARN_NO_SUBSYSTEM && isLegacy) {
    AddAnswer("reset by", "resetBy", TARN_OK, "not known, the older interface lacks it", nullptr,
              report);
  } else if (code != TARN_OK || record == nullptr) {
    AddAnswer("reset by", "resetBy", code, "none", nullptr, report);
  } else {
    const std::string wordA = fmt::format("{:#x}", uint64_t{record->wordA});
    const std::string wordB = fmt::format("{:#x}", uint32_t{record->wordB});
    AddAnswer("reset by", "resetBy", code, fmt::format("{} ({}, {})", record->path, wordA, wordB),
              {{"file", EscapeInvalidUtf8(record->path)}, {"wordA", wordA}, {"wordB", wordB}},
              report);
  }
}

// Says what the integrity value lets the task do.
std::string MeaningOf(uint32_t integrity) {
  if (integrity == 0) return "may not label or edit files: its integrity is 0";
  if (integrity == TARN_INTEGRITY_PENDING) {
    return fmt::format("waits: the kernel has not decided about its integrity yet ({:#x})",
                       integrity);
  }
  return fmt::format("may label and edit files (integrity {:#x})", integrity);
}

KernelReport ShowTask(int pid) {
  KernelReport report;
  report.facts["pid"] = pid == 0 ? getpid() : pid;
  report.facts["failures"] = nlohmann::ordered_json::array();
  uint32_t value = 0;
  const uint32_t code = TarnTaskReadIntegrity(pid, /*wait=*/0, &value);
  const std::string text = fmt::format("{:#x}", value);
  AddAnswer("integrity", "integrity", code, text, text, report);
  AddLabel(pid, report);
  AddResetFile(pid, /*isLegacy=*/code != TARN_NO_SUBSYSTEM, report);
  const std::string task = pid == 0 ? "this task" : fmt::format("task {}", pid);
  report.summary =
      task + " " + (code == TARN_OK ? MeaningOf(value) : "is not known: " + TarnCodeText(code));
  return report;
}

}  // namespace

CommandRun DeclareTask(CLI::App& parser) {
  struct Options {
    int pid = 0;
    KernelOptions kernel;
  };
  const auto options = std::make_shared<Options>();
  AcceptNumbers(parser.add_option("PID", options->pid, "A process ID (default: this process)"), 0,
                std::numeric_limits<int>::max());
  DeclareKernelOptions(parser, options->kernel);
  SetHelp(
      parser,
      {{{"Show what the kernel knows of the shell", "quillon task $$"},
        {"Try it with a simulated kernel", "quillon task --simulate"}},
       {{kDone, "everything was shown"},
        {kFailed,
         "a query failed; the machine has no kernel for this, or the simulator did not answer; or "
         "the output could not be written"},
        {kUsage, "wrong usage"}}});
  return [options] {
    return RunWithKernel("task", options->kernel, /*package=*/"",
                         [options] { return ShowTask(options->pid); });
  };
}

}  // namespace Quill::Tool
