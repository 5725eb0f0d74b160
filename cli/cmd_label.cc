// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>

#include <quillon/tarn.h>

#include "cli/commands.h"
#include "cli/file_label.h"
#include "cli/help.h"
#include "cli/kernel_command.h"
#include "cli/log_recorder.h"
#include "cli/open_files.h"
#include "cli/output.h"
#include "cli/tarn_code.h"
#include "util/escape.h"

namespace Quill::Tool {
namespace {

// Asks the kernel for its verdict, and reads the label if that can be read. Only the simulated
// kernel keeps it where a program can read it.
KernelReport ShowLabel(const std::string& file) {
  LogRecorder::Install();
  std::vector<std::unique_ptr<Fd>> opened;
  const std::string obstacle = OpenFiles({file}, opened);
  if (!obstacle.empty()) return Obstacle(kUnreadable, obstacle);
  const uint32_t code = TarnVerifyFdSync(opened[0]->GetFd());
  const bool isVerified = code == TARN_OK;
  const auto label = DescribeLabel(file, /*package=*/"");
  KernelReport report;
  report.status = isVerified ? kDone : kFailed;
  report.summary = fmt::format(
      "{}: {}{}", FileText(file),
      isVerified ? "verified by the kernel" : "not verified by the kernel, " + TarnCodeText(code),
      label ? "; label: " + *label : "");
  report.facts = {{"file", EscapeInvalidUtf8(file)},
                  {"verified", isVerified},
                  {"reason", nullptr},
                  {"label", nullptr}};
  if (!isVerified) report.facts["reason"] = TarnCodeText(code);
  if (label) report.facts["label"] = *label;
  return report;
}

}  // namespace

CommandRun DeclareLabel(CLI::App& parser) {
  struct Options {
    std::string file;
    KernelOptions kernel;
  };
  const auto options = std::make_shared<Options>();
  parser.add_option("FILE", options->file, "The labelled file")->required();
  DeclareKernelOptions(parser, options->kernel);
  SetHelp(
      parser,
      {{{"Ask the kernel whether compiled code is what was labelled", "quillon label base.odex"},
        {"The same, against a label that a simulated kernel made",
         "quillon label --simulate base.odex"}},
       {{kDone, "the kernel verified the file"},
        {kFailed,
         "the kernel did not verify it; the machine has no kernel for this, or the simulator did not "
         "answer; or the output could not be written"},
        {kUsage, "wrong usage"},
        {kUnreadable, "the file could not be opened or is not a regular file"}}});
  return [options] {
    return RunWithKernel("label", options->kernel, /*package=*/"",
                         [options] { return ShowLabel(options->file); });
  };
}

}  // namespace Quill::Tool
