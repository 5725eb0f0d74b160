// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/child_queue.h"
#include "cli/commands.h"
#include "cli/log_recorder.h"
#include "cli/output.h"
#include "cli/package_report.h"
#include "cli/progress.h"
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
  // No honest package needs as much. docs/security.md has what large ones need.
  ChildLimits limits = {/*seconds=*/120, /*mebibytes=*/1024};
};

// What is printed of one file. A child sends it as bytes.
struct FileOutput {
  ExitStatus status;
  std::string text;  // a line for people: the verdict, or why there is none
  std::string json;  // a line; empty if not asked for
  std::vector<std::string> log;
};

FileOutput OutputOf(const PackageReport& report, const VerifyOptions& options) {
  FileOutput output = {ExitOf(report.verdict.status), ToText(report), "", {}};
  if (options.json) output.json = ToJson(report);
  if (!options.verbose) return output;
  for (const LogLine& line : report.log) {
    output.log.push_back(fmt::format("{}: {} {}", FileText(report.file), line.priority, line.text));
  }
  return output;
}

std::string ToBytes(const FileOutput& output) {
  std::string bytes;
  nlohmann::json::to_msgpack({output.status, output.text, output.json, output.log}, bytes);
  return bytes;
}

FileOutput FromBytes(const std::string& bytes) {
  const auto fields = nlohmann::json::from_msgpack(bytes);
  return {static_cast<ExitStatus>(fields.at(0).get<int>()), fields.at(1), fields.at(2),
          fields.at(3)};
}

// Returns false when standard output fails.
bool Print(const FileOutput& output) {
  for (const std::string& line : output.log) PrintErrorLine(line);
  if (output.status == kUnreadable) {
    PrintDiagnostic(output.text);
    return output.json.empty() || PrintLine(output.json);
  }
  return PrintLine(output.json.empty() ? output.text : output.json);
}

ExitStatus Verify(const VerifyOptions& options) {
  constexpr std::chrono::milliseconds kTick(100);
  if (!options.sdk.empty()) setenv("QUILLON_SDK", options.sdk.c_str(), /*overwrite=*/1);
  if (!IsSdkLevelUsable()) return kUsage;
  LogRecorder::Install();
  const std::vector<std::string>& files = options.files;
  ChildQueue children(
      files.size(), static_cast<size_t>(options.jobs), options.limits, [&options](size_t i) {
        return ToBytes(OutputOf(VerifyPackage(options.files[i], !options.halyxFilter), options));
      });
  Progress progress(files.size());
  ExitStatus status = kDone;
  for (size_t i = 0; i < files.size(); ++i) {
    do {
      progress.Show(children.DoneCount());
    } while (!children.WaitFor(i, kTick));
    const ChildResult result = children.Take(i);
    const FileOutput output =
        result.end == ChildEnd::kReported
            ? FromBytes(result.report)
            : OutputOf(ReportOfEnd(files[i], result, options.limits), options);
    progress.Erase();
    if (!Print(output)) return kFailed;
    if (status == kDone || (output.status != kDone && output.status < status)) {
      status = output.status;
    }
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
  parser
      .add_option("--time-limit", options->limits.seconds,
                  "Give up a file after S seconds of processor time, or five times as long by the "
                  "clock")
      ->type_name("S")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000000));
  parser
      .add_option(
          "--memory-limit", options->limits.mebibytes,
          "Give up a file that needs more than MIB MiB of memory; mapped files do not count")
      ->type_name("MIB")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000000));
  parser.footer(
      "Exit status:\n"
      "  0  every package was verified\n"
      "  1  a package was refused; this includes a damaged one whose manifest is missing or\n"
      "     unreadable. Or the output could not be written\n"
      "  2  wrong usage, or the variable QUILLON_SDK is not a number\n"
      "  3  no verdict: a file could not be read or mapped, is not a ZIP archive, changed while\n"
      "     it was read, or cost more than it was allowed\n"
      "  4  a file was not verified: it is an archive but not a package, or is outside the\n"
      "     Halyx feature\n"
      "If several of 1 to 4 apply, the smallest is returned.");
  return [options] { return Verify(*options); };
}

}  // namespace Quill::Tool
