// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>

#include <quillon/tarn.h>

#include "cli/commands.h"
#include "cli/file_label.h"
#include "cli/help.h"
#include "cli/log_recorder.h"
#include "cli/open_files.h"
#include "cli/output.h"
#include "cli/simulate_option.h"
#include "cli/tarn_code.h"

namespace Quill::Tool {
namespace {

// Prints the kernel's verdict, and the label if it can be read. Only the simulated kernel keeps it
// where a program can read it.
ExitStatus ShowLabel(const std::string& file) {
  LogRecorder::Install();
  std::vector<std::unique_ptr<Fd>> opened;
  if (!OpenFiles({file}, opened)) return kUnreadable;
  const uint32_t code = TarnVerifyFdSync(opened[0]->GetFd());
  const std::string verdict = code == TARN_OK ? "verified by the kernel"
                                              : "not verified by the kernel, " + TarnCodeText(code);
  const auto label = DescribeLabel(file, /*package=*/"");
  if (!PrintLine(
          fmt::format("{}: {}{}", FileText(file), verdict, label ? "; label: " + *label : ""))) {
    return kFailed;
  }
  return code == TARN_OK ? kDone : kFailed;
}

}  // namespace

CommandRun DeclareLabel(CLI::App& parser) {
  struct Options {
    std::string file;
    std::string simulate;
  };
  const auto options = std::make_shared<Options>();
  parser.add_option("FILE", options->file, "The labelled file")->required();
  DeclareSimulate(parser, options->simulate);
  SetHelp(
      parser,
      {{{"Ask the kernel whether compiled code is what was labelled", "quillon label base.odex"},
        {"The same, against a label that a simulated kernel made",
         "quillon label --simulate base.odex"}},
       {{kDone, "the kernel verified the file"},
        {kFailed,
         "the kernel did not verify it, the simulator did not answer, or the output could not be "
         "written"},
        {kUsage, "wrong usage"},
        {kUnreadable, "the file could not be opened or is not a regular file"}}});
  return [options] {
    return RunMaybeSimulated(options->simulate, "", [options] { return ShowLabel(options->file); });
  };
}

}  // namespace Quill::Tool
