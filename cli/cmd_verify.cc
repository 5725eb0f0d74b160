// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>

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

struct Options {
  std::vector<std::string> files;
  bool json = false;
  bool verbose = false;
  bool halyxFilter = false;
  std::optional<int32_t> sdk;
  int32_t jobs = 1;
};

// False when standard output does not take it.
bool Print(const PackageReport& report, const Options& options) {
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

ExitStatus Verify(const Options& options) {
  constexpr std::chrono::milliseconds kTick(100);
  if (options.sdk) {
    setenv("QUILLON_SDK", std::to_string(*options.sdk).c_str(), /*overwrite=*/1);
  }
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
  const auto options = std::make_shared<Options>();
  parser.add_option("FILE", options->files, "Packages to verify")->type_name("")->required();
  parser.add_flag("--json", options->json, "Print one JSON object per file");
  parser
      .add_option("--sdk", options->sdk,
                  "Verify as on a platform of this SDK level, not on one of $QUILLON_SDK or 30; "
                  "a device goes by its own level")
      ->type_name("N")
      ->check(CLI::Range(0, kMost));
  parser.add_flag("--halyx-filter", options->halyxFilter,
                  "Leave packages outside the Halyx feature unverified, as the platform does");
  parser.add_flag("-v,--verbose", options->verbose, "Show the log lines of each file");
  parser.add_option("-j,--jobs", options->jobs, "Verify so many packages side by side")
      ->type_name("JOBS")
      ->check(CLI::Range(1, kMost));
  parser.footer(
      "Exit status: 0 all verified, 1 something was refused, 2 wrong usage, 3 a file could not be\n"
      "read or mapped, is no ZIP archive or changed meanwhile, 4 something was left unverified "
      "that\n"
      "never was a package or is outside the Halyx feature. The smallest that applies, other than "
      "0,\n"
      "counts.");
  return [options] { return Verify(*options); };
}

}  // namespace Quill::Tool
