// SPDX-License-Identifier: Apache-2.0

#include "cli/integrity_run.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>

#include "cli/file_label.h"
#include "cli/journal_file.h"
#include "cli/log_recorder.h"
#include "cli/output.h"
#include "cli/regular_file.h"
#include "cli/simulated_run.h"

namespace Quill::Tool {
namespace {

using nlohmann::json;

// What was asked and what came of it, in words.
std::string Describe(const json& request) {
  std::string text = request.value("request", "?");
  if (const int pid = request.value("pid", 0); pid != 0) text += fmt::format(" of task {}", pid);
  if (request.contains("file")) text += " " + request["file"].get<std::string>();
  if (request.contains("identity")) {
    text += fmt::format(", identity {}, {} bytes", request["identity"].get<std::string>(),
                        request.value("certificate", "").size() / 2);
  }
  if (request.contains("integrity")) text += " = " + request["integrity"].get<std::string>();
  const int error = request.value("errno", 0);
  const int result = request.value("result", 0);
  if (result == 0) return text + ", done";
  return text + ", refused: " + std::generic_category().message(error);
}

// What the library logs where its rules leave a file without a label, and why they do.
constexpr struct {
  std::string_view lineStart;
  const char* reason;
} kUnlabelled[] = {
    {"HALYX permissions are absent.", "the package is outside the Halyx feature"},
    {"TARN can't verify a file ", "a plain JAR, which the kernel does not verify"},
};

// Null when no rule stood in the way of a label.
const char* WhyNothingLabelled(const std::vector<LogLine>& log) {
  for (const LogLine& line : log) {
    for (const auto& [lineStart, reason] : kUnlabelled) {
      if (line.text.compare(0, lineStart.size(), lineStart) == 0) return reason;
    }
  }
  return nullptr;
}

bool Show(const std::vector<json>& requests, const std::string& package) {
  if (requests.empty()) return true;
  bool shown = PrintLine("What the simulated kernel was asked:");
  std::vector<std::string> signedFiles;
  for (size_t i = 0; i < requests.size(); ++i) {
    const json& request = requests[i];
    if (!request.is_object()) continue;
    shown = shown && PrintLine(fmt::format("  {}. {}", i + 1, Describe(request)));
    const std::string file = request.value("file", "");
    if (request.value("request", "") != "sign" || request.value("result", -1) != 0) continue;
    if (std::find(signedFiles.begin(), signedFiles.end(), file) == signedFiles.end()) {
      signedFiles.push_back(file);
    }
  }
  if (!signedFiles.empty()) shown = shown && PrintLine("Labels:");
  for (const std::string& file : signedFiles) {
    const std::string label = DescribeLabel(file, package).value_or("none");
    shown = shown && PrintLine(fmt::format("  {}: {}", file, label));
  }
  return shown;
}

}  // namespace

bool OpenFiles(const std::vector<std::string>& files, std::vector<std::unique_ptr<Fd>>& out) {
  for (const std::string& file : files) {
    RegularFile opened = OpenRegularFile(file);
    if (!opened.fd) {
      PrintDiagnostic(file + ": " + opened.obstacle);
      return false;
    }
    out.push_back(std::move(opened.fd));
  }
  return true;
}

ExitStatus RunLogged(const std::function<void()>& entryPoint) {
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
  PrintDiagnostic(fmt::format("nothing labelled: {}", reason));
  return kUnverified;
}

void DeclareSimulate(CLI::App& parser, std::string& interface) {
  parser
      .add_flag(
          "--simulate{device}", interface,
          "Run with a simulated kernel, with its device or its legacy interface, and show what "
          "it was asked")
      ->check(CLI::IsMember({"device", "legacy"}));
}

ExitStatus RunMaybeSimulated(const std::string& interface, const std::string& package,
                             const std::function<ExitStatus()>& command) {
  if (interface.empty()) return command();
  if (IsSecondRun()) {
    if (SimulatorAnswers()) return command();
    PrintDiagnostic("not run: libtarnsim.so does not answer, so nothing would be simulated");
    return kFailed;
  }
  const JournalFile journal;
  const ExitStatus status = RunAgain(interface, journal);
  LogRecorder::Install();
  return Show(journal.Read(), package) ? status : kFailed;
}

}  // namespace Quill::Tool
