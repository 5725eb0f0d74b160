// SPDX-License-Identifier: Apache-2.0

#include "cli/kernel_command.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "cli/journal_file.h"
#include "cli/log_recorder.h"
#include "cli/output.h"
#include "cli/simulated_requests.h"
#include "cli/simulated_run.h"
#include "cli/usage.h"
#include "integrity/tarn_device.h"
#include "simulator/fault.h"
#include "simulator/kernel_path.h"

namespace Quill::Tool {
namespace {

bool IsFault(const std::string& text) {
  tarnsim::Fault unused{};
  return tarnsim::ParseFault(text, unused).empty();
}

// Returns what contradicts the options; empty if nothing does.
std::string FindContradiction(const KernelOptions& options) {
  if (options.simulate.empty()) {
    const bool hasFault = !options.faults.empty();
    if (!hasFault && options.journal.empty()) return "";
    return fmt::format("{} is for --simulate", hasFault ? "--fail" : "--journal");
  }
  const char* interface = getenv("TARNSIM_INTERFACE");
  if (interface != nullptr && interface != options.simulate) {
    return fmt::format("--simulate asks for \"{}\", and TARNSIM_INTERFACE for \"{}\"",
                       options.simulate, interface);
  }
  if (getenv("TARNSIM_JOURNAL") != nullptr && !options.journal.empty()) {
    return "--journal and TARNSIM_JOURNAL both name a journal";
  }
  return "";
}

ExitStatus PrintReport(const KernelReport& report, const std::string& command, bool json) {
  if (json) return PrintLine(ToJson(report, command)) ? report.status : kFailed;
  for (const std::string& line : report.lines) {
    if (!PrintLine(line)) return kFailed;
  }
  if (report.isObstacle) {
    PrintDiagnostic(report.summary);
  } else if (!report.summary.empty() && !PrintLine(report.summary)) {
    return kFailed;
  }
  return report.status;
}

ExitStatus RunSecond(const std::function<KernelReport()>& work) {
  if (!SimulatorAnswers()) {
    PrintDiagnostic("not run: libtarnsim.so does not answer, so nothing would be simulated");
    return kFailed;
  }
  const KernelReport report = work();
  return SendReport(ReportToBytes(report)) ? report.status : kFailed;
}

std::unique_ptr<JournalFile> OpenJournal(const KernelOptions& options) {
  const char* variable = getenv("TARNSIM_JOURNAL");
  if (variable == nullptr && options.journal.empty()) return std::make_unique<JournalFile>();
  const std::string path = variable != nullptr ? variable : options.journal;
  if (tarnsim::IsKernelFile(path)) {
    throw std::runtime_error("the journal must not be a file of the kernel: " + path);
  }
  return std::make_unique<JournalFile>(path);
}

ExitStatus RunSimulated(const std::string& command, const KernelOptions& options,
                        const std::string& package) {
  const std::unique_ptr<JournalFile> journal = OpenJournal(options);
  const JournalFile sent;
  const ExitStatus status = RunAgain({options.simulate, options.faults, journal->Path(),
                                      journal->Descriptor(), sent.Descriptor()});
  std::optional<KernelReport> report = ReportFromBytes(sent.ReadText());
  const bool isWhole = report.has_value();
  if (!isWhole) report.emplace().status = status == kDone ? kFailed : status;
  const std::vector<nlohmann::json> requests = journal->Read();
  LogRecorder::Install();
  if (options.json) {
    if (!isWhole) return report->status;  // a line on standard error says why
    report->facts["simulated"] = options.simulate;
    AddRequests(requests, package, report->facts);
  } else {
    for (std::string& line : DescribeRequests(requests, package)) {
      report->lines.push_back(std::move(line));
    }
  }
  return PrintReport(*report, command, options.json);
}

}  // namespace

void DeclareKernelOptions(CLI::App& parser, KernelOptions& options) {
  CLI::Option* simulate = parser.add_flag(
      "--simulate{device}", options.simulate,
      "Run with a simulated kernel, and show the requests that it receives. KERNEL is its "
      "interface: device (the default) or legacy");
  simulate->type_name("KERNEL");
  AcceptOneOf(simulate, "\"device\" or \"legacy\"", {"device", "legacy"});
  CLI::Option* fail = parser.add_option(
      "--fail", options.faults,
      "Let the simulated kernel refuse a request. FAULT is REQUEST:N:ERRNO, as in sign:1:EIO: the "
      "N-th request of this name, or each if N is 0. May be repeated");
  fail->type_name("FAULT")->allow_extra_args(false);
  AcceptOnly(fail, "a fault such as sign:1:EIO", IsFault);
  parser
      .add_option("--journal", options.journal,
                  "Append the requests to the simulated kernel to this file, as JSON")
      ->type_name("FILE");
  parser.add_flag("--json", options.json,
                  "Print one JSON object, with the log, and no log on standard error");
}

ExitStatus RunWithKernel(const std::string& command, const KernelOptions& options,
                         const std::string& package, const std::function<KernelReport()>& work) {
  const std::string contradiction = IsSecondRun() ? "" : FindContradiction(options);
  if (!contradiction.empty()) {
    PrintDiagnostic(contradiction);
    PrintDiagnostic(fmt::format("try \"quillon {} --help\"", command));
    return kUsage;
  }
  if (!options.simulate.empty()) {
    return IsSecondRun() ? RunSecond(work) : RunSimulated(command, options, package);
  }
  const bool hasKernel = FindTarnInterface() != TarnInterface::kNone;
  return PrintReport(
      hasKernel ? work()
                : Obstacle(kFailed, "no integrity subsystem here; --simulate rehearses it"),
      command, options.json);
}

}  // namespace Quill::Tool
