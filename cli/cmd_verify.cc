// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>

#include "cli/commands.h"
#include "cli/log_recorder.h"
#include "cli/lost_pages.h"
#include "cli/output.h"
#include "cli/package_report.h"
#include "cli/progress.h"
#include "cli/report_queue.h"
#include "cli/sdk_level.h"

namespace Quill::Tool {
namespace {

struct VerifyOptions {
  std::vector<std::string> files;
  bool json = false;
  bool verbose = false;
  bool halyxFilter = false;
  std::string sdk;  // empty: not given
  int32_t jobs = 1;
};

// Prints the report of one file. Returns false when standard output fails.
bool Print(const PackageReport& report, const VerifyOptions& options) {
  if (options.verbose) {
    for (const LogLine& line : report.log) {
      PrintErrorLine(fmt::format("{}: {} {}", FileText(report.file), line.priority, line.text));
    }
  }
  if (!HasVerdict(report)) {
    PrintDiagnostic(ToText(report));
    if (!options.json) return true;
  }
  return PrintLine(options.json ? ToJson(report) : ToText(report));
}

ExitStatus Verify(const VerifyOptions& options) {
  constexpr std::chrono::milliseconds kTick(100);
  if (!options.sdk.empty()) setenv("QUILLON_SDK", options.sdk.c_str(), /*overwrite=*/1);
  if (!IsSdkLevelUsable()) return kUsage;
  LogRecorder::Install();
  SurviveLostPages();
  ReportQueue reports(options.files, static_cast<size_t>(options.jobs), !options.halyxFilter);
  Progress progress(options.files.size());
  ExitStatus status = kDone;
  for (size_t i = 0; i < options.files.size(); ++i) {
    do {
      progress.Show(reports.DoneCount());
    } while (!reports.WaitFor(i, kTick));
    const PackageReport report = reports.Take(i);
    progress.Erase();
    if (!Print(report, options)) return kFailed;
    const ExitStatus own = report.verdict.status;
    if (status == kDone || (own != kDone && own < status)) status = own;
  }
  return status;
}

}  // namespace

CommandRun DeclareVerify(CLI::App& parser) {
  constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
  const auto options = std::make_shared<VerifyOptions>();
  parser.add_option("FILE", options->files, "Packages to verify")->type_name("")->required();
  parser.add_flag("--json", options->json, "Print one JSON object per file");
  parser
      .add_option("--sdk", options->sdk,
                  "Verify as a platform of SDK level N does (default: $QUILLON_SDK, or 30); "
                  "a device uses its own level")
      ->type_name("N")
      ->check([](const std::string& text) {
        return IsSdkLevel(text) ? "" : "not an SDK level: \"" + text + '"';
      });
  parser.add_flag("--halyx-filter", options->halyxFilter,
                  "Do not verify packages outside the Halyx feature, like the platform");
  parser.add_flag("-v,--verbose", options->verbose, "Show the log lines of each file");
  parser.add_option("-j,--jobs", options->jobs, "Verify up to JOBS packages at the same time")
      ->type_name("JOBS")
      ->check(CLI::Range(1, kMost));
  parser.footer(
      "Exit status:\n"
      "  0  every package was verified\n"
      "  1  a package was refused; this includes a damaged one whose manifest is missing or\n"
      "     unreadable. Or the output could not be written\n"
      "  2  wrong usage, or the variable QUILLON_SDK is not a number\n"
      "  3  no verdict: a file could not be read or mapped, is not a ZIP archive, changed while\n"
      "     it was read, or needed more memory than there was\n"
      "  4  a file was not verified: it is an archive but not a package, or is outside the\n"
      "     Halyx feature\n"
      "If several of 1 to 4 apply, the smallest is returned.");
  return [options] { return Verify(*options); };
}

}  // namespace Quill::Tool
