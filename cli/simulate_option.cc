// SPDX-License-Identifier: Apache-2.0

#include "cli/simulate_option.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "cli/journal_file.h"
#include "cli/log_recorder.h"
#include "cli/output.h"
#include "cli/simulated_requests.h"
#include "cli/simulated_run.h"
#include "cli/usage.h"

namespace Quill::Tool {

void DeclareSimulate(CLI::App& parser, std::string& interface) {
  CLI::Option* option = parser.add_flag(
      "--simulate{device}", interface,
      "Run with a simulated kernel, and show the requests that it receives. KERNEL is its "
      "interface: device (the default) or legacy");
  option->type_name("KERNEL");
  AcceptOnly(option, "\"device\" or \"legacy\"",
             [](const std::string& text) { return text == "device" || text == "legacy"; });
}

ExitStatus RunMaybeSimulated(const std::string& interface, const std::string& package,
                             const std::function<ExitStatus()>& command) {
  if (interface.empty()) return command();
  if (IsSecondRun()) {
    if (SimulatorAnswers()) {
      const ExitStatus status = command();
      return std::ferror(stdout) != 0 ? kOutputLost : status;
    }
    PrintDiagnostic("not run: libtarnsim.so does not answer, so nothing would be simulated");
    return kFailed;
  }
  const JournalFile journal;
  const ExitStatus status = RunAgain(interface, journal);
  if (status == kOutputLost) return kFailed;
  LogRecorder::Install();
  return ShowRequests(journal.Read(), package) ? status : kFailed;
}

}  // namespace Quill::Tool
