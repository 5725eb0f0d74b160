// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <memory>

#include <quillon/tarn.h>

#include "cli/commands.h"
#include "cli/help.h"
#include "cli/output.h"
#include "cli/simulate_option.h"
#include "cli/tarn_code.h"
#include "cli/usage.h"
#include "integrity/label_owner.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

struct Line {
  std::string text;
  uint32_t code;
};

Line IntegrityLine(int pid) {
  uint32_t value = 0;
  const uint32_t code = TarnTaskReadIntegrity(pid, /*wait=*/0, &value);
  return {fmt::format("{:#x}", value), code};
}

Line LabelLine(int pid) {
  TarnLabel* label = nullptr;
  const uint32_t code = TarnTaskGetIntegrityLabel(pid, &label);
  const LabelOwner owner(label);
  if (!label) return {"none", code};
  const size_t size = label->length;
  return {fmt::format("{} ({} bytes)", ToHex(label->data, size), size), code};
}

Line ResetFileLine(int pid) {
  TarnResetFile* record = nullptr;
  const uint32_t code = TarnGetResetFile(pid, &record);
  const ResetFileOwner owner(record);
  if (!record) return {"none", code};
  return {fmt::format("{} ({:#x}, {:#x})", record->path, uint64_t{record->wordA},
                      uint32_t{record->wordB}),
          code};
}

ExitStatus ShowTask(int pid) {
  const struct {
    const char* title;
    Line line;
  } kLines[] = {
      {"integrity", IntegrityLine(pid)},
      {"label", LabelLine(pid)},
      {"reset by", ResetFileLine(pid)},
  };
  ExitStatus status = kDone;
  const bool isLegacy = kLines[0].line.code != TARN_NO_SUBSYSTEM;
  for (const auto& [title, line] : kLines) {
    if (line.code == TARN_NO_SUBSYSTEM && isLegacy) {
      if (!PrintLine(fmt::format("{}: not known, the older interface lacks it", title))) {
        return kFailed;
      }
      continue;
    }
    if (line.code == TARN_OK) {
      if (!PrintLine(fmt::format("{}: {}", title, line.text))) return kFailed;
      continue;
    }
    PrintDiagnostic(fmt::format("{}: {}", title, TarnCodeText(line.code)));
    status = kFailed;
  }
  return status;
}

}  // namespace

CommandRun DeclareTask(CLI::App& parser) {
  struct Options {
    int pid = 0;
    std::string simulate;
  };
  const auto options = std::make_shared<Options>();
  AcceptNumbers(parser.add_option("PID", options->pid, "A process ID (default: this process)"), 0,
                std::numeric_limits<int>::max());
  DeclareSimulate(parser, options->simulate);
  SetHelp(parser,
          {{{"Show what the kernel knows of the shell", "quillon task $$"},
            {"Try it with a simulated kernel", "quillon task --simulate"}},
           {{kDone, "everything was shown"},
            {kFailed,
             "a query failed, the simulator did not answer, or the output could not be written"},
            {kUsage, "wrong usage"}}});
  return [options] {
    return RunMaybeSimulated(options->simulate, "", [options] { return ShowTask(options->pid); });
  };
}

}  // namespace Quill::Tool
