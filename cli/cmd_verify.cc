// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "cli/child_queue.h"
#include "cli/commands.h"
#include "cli/file_list.h"
#include "cli/log_recorder.h"
#include "cli/output.h"
#include "cli/package_report.h"
#include "cli/progress.h"
#include "cli/sdk_level.h"

namespace Quill::Tool {
namespace {

struct VerifyOptions {
  std::vector<std::string> files;
  std::string list;  // a file with more of them; empty: none
  bool quiet = false;
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

// Returns nothing for bytes that no healthy child sends.
std::optional<FileOutput> FromBytes(const std::string& bytes) {
  try {
    const auto fields = nlohmann::json::from_msgpack(bytes);
    return FileOutput{static_cast<ExitStatus>(fields.at(0).get<int>()), fields.at(1), fields.at(2),
                      fields.at(3)};
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;
  }
}

FileOutput OutputOfEnd(const std::string& file, ChildResult result, const VerifyOptions& options) {
  if (result.end == ChildEnd::kReported) {
    if (auto output = FromBytes(result.report)) return *std::move(output);
    result.end = ChildEnd::kCrashed;
  }
  return OutputOf(ReportOfEnd(file, !options.halyxFilter, result, options.limits), options);
}

// Returns false when standard output fails.
bool Print(const FileOutput& output, const VerifyOptions& options) {
  for (const std::string& line : output.log) PrintErrorLine(line);
  if (output.status == kDone && options.quiet) return true;
  if (options.json) return PrintLine(output.json);
  if (output.status != kUnreadable) return PrintLine(output.text);
  PrintDiagnostic(output.text);
  return true;
}

ExitStatus Verify(const VerifyOptions& options) {
  using State = ChildQueue::State;
  constexpr std::chrono::milliseconds kTick(100);
  if (!options.sdk.empty()) setenv("QUILLON_SDK", options.sdk.c_str(), /*overwrite=*/1);
  if (!IsSdkLevelUsable()) return kUsage;
  FileList files(options.files, options.list);
  if (!files.IsOpen()) {
    PrintDiagnostic(FileText(options.list) + ": " + std::generic_category().message(errno));
    return kUsage;
  }
  LogRecorder::Install();

  std::deque<std::string> pending;  // the files that were begun, in order
  ChildQueue children(static_cast<size_t>(options.jobs), options.limits, [&]() -> ChildQueue::Work {
    const std::optional<std::string> file = files.Next();
    if (!file) return nullptr;
    pending.push_back(*file);
    return [&options, file] {
      return ToBytes(OutputOf(VerifyPackage(*file, !options.halyxFilter), options));
    };
  });
  Progress progress;
  ExitStatus status = kDone;
  State state = State::kWaiting;
  while ((state = children.WaitFor(kTick)) != State::kEnd) {
    progress.Show(children.DoneCount(), files.KnownCount());
    if (state == State::kWaiting) continue;
    const FileOutput output = OutputOfEnd(pending.front(), children.Take(), options);
    pending.pop_front();
    progress.Erase();
    if (!Print(output, options)) return kFailed;
    if (status == kDone || (output.status != kDone && output.status < status)) {
      status = output.status;
    }
  }
  progress.Erase();
  if (!files.IsWhole()) {
    PrintDiagnostic(FileText(options.list) + ": the list could not be read to its end");
    return files.KnownCount() == 0 ? kUsage : kUnreadable;
  }
  if (files.KnownCount() == 0) {
    PrintDiagnostic("no file is named; try \"quillon verify --help\"");
    return kUsage;
  }
  return status;
}

}  // namespace

CommandRun DeclareVerify(CLI::App& parser) {
  constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
  const auto options = std::make_shared<VerifyOptions>();
  parser.add_option("FILE", options->files, "Packages to verify")->type_name("");
  parser
      .add_option(
          "--files-from0", options->list,
          "Verify the files of this list, too: names that end with a zero byte each, from a "
          "file or, with -, from standard input")
      ->type_name("LIST");
  parser.add_flag("-q,--quiet", options->quiet, "Print only what is not verified");
  parser.add_flag("--json", options->json,
                  "Print one JSON object per file, and nothing about files on standard error");
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
      ->check(CLI::Range(1, kMost).description(""));
  parser
      .add_option("--time-limit", options->limits.seconds,
                  "Give up a file after S seconds of processor time, or five times as long by the "
                  "clock")
      ->type_name("S")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000000).description(""));
  parser
      .add_option(
          "--memory-limit", options->limits.mebibytes,
          "Give up a file that needs more than MIB MiB of memory; mapped files do not count")
      ->type_name("MIB")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000000).description(""));
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
