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
#include <utility>
#include <vector>

#include "cli/child_queue.h"
#include "cli/commands.h"
#include "cli/file_list.h"
#include "cli/help.h"
#include "cli/log_recorder.h"
#include "cli/output.h"
#include "cli/package_report.h"
#include "cli/progress.h"
#include "cli/reference.h"
#include "cli/sdk_level.h"
#include "cli/usage.h"

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
  std::vector<std::string> signers;
  bool sameSigner = false;
  VerifyRules rules;
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
  return OutputOf(ReportOfEnd(file, options.rules, result, options.limits), options);
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

// Fills in the rules that need more than the command line. Returns false, with a diagnostic, when
// one of them cannot be had.
bool PrepareRules(VerifyOptions& options) {
  VerifyRules& rules = options.rules;
  rules.ignoreHalyxFilter = !options.halyxFilter;
  rules.locatesFields = options.json;
  if (!options.sdk.empty()) rules.sdk = ParseSdkLevels(options.sdk);
  rules.asksForSigner = !options.signers.empty() || options.sameSigner;
  if (rules.allowsJar && !rules.asksForSigner) {
    PrintDiagnostic("--allow-v1 is for --signer and --same-signer; try \"quillon verify --help\"");
    return false;
  }
  VerifyRules own;  // of the packages to compare with
  own.sdk = rules.sdk;
  own.asksForSigner = rules.asksForSigner;
  own.allowsJar = rules.allowsJar;
  std::vector<ExpectedSigner> expected;
  for (const std::string& text : options.signers) {
    auto signer = ReadExpectedSigner(text, own, options.limits);
    if (!signer) return false;
    expected.push_back(*std::move(signer));
  }
  rules.expected = std::move(expected);
  return true;
}

// The files to verify, the first of them perhaps known already.
class Files {
 public:
  explicit Files(const VerifyOptions& options) : list_(options.files, options.list) {}

  FileList& List() { return list_; }
  const std::optional<std::string>& First() {
    if (!hasFirst_) first_ = list_.Next();
    hasFirst_ = true;
    return first_;
  }
  std::optional<std::string> Next() {
    if (std::exchange(hasFirst_, false)) return std::exchange(first_, std::nullopt);
    return list_.Next();
  }

 private:
  FileList list_;
  std::optional<std::string> first_;
  bool hasFirst_ = false;
};

ExitStatus Verify(VerifyOptions& options) {
  using State = ChildQueue::State;
  constexpr std::chrono::milliseconds kTick(100);
  if (options.sdk.empty() && !IsSdkLevelUsable()) return kUsage;
  Files files(options);
  const FileList& list = files.List();
  if (!list.IsOpen()) {
    PrintDiagnostic(FileText(options.list) + ": " + std::generic_category().message(errno));
    return kUsage;
  }
  LogRecorder::Install();
  if (!PrepareRules(options)) return kUsage;
  if (options.sameSigner && files.First()) {
    options.rules.sibling = ReadSibling(*files.First(), options.rules, options.limits);
    if (!options.rules.sibling) options.rules.sibling = Sibling{*files.First(), {}, {}, {}};
  }

  std::deque<std::string> pending;  // the files that were begun, in order
  ChildQueue children(static_cast<size_t>(options.jobs), options.limits, [&]() -> ChildQueue::Work {
    const std::optional<std::string> file = files.Next();
    if (!file) return nullptr;
    pending.push_back(*file);
    return [&options, file] {
      return ToBytes(OutputOf(VerifyPackage(*file, options.rules), options));
    };
  });
  Progress progress;
  ExitStatus status = kDone;
  State state = State::kWaiting;
  while ((state = children.WaitFor(kTick)) != State::kEnd) {
    progress.Show(children.DoneCount(), list.KnownCount());
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
  if (!list.IsWhole()) {
    PrintDiagnostic(FileText(options.list) + ": the list could not be read to its end");
    return list.KnownCount() == 0 ? kUsage : kUnreadable;
  }
  if (list.KnownCount() == 0) {
    PrintDiagnostic("no file is named; try \"quillon verify --help\"");
    return kUsage;
  }
  return status;
}

void DeclareRules(CLI::App& parser, VerifyOptions& options) {
  VerifyRules& rules = options.rules;
  parser
      .add_option("--signer", options.signers,
                  "Refuse packages that this signer has not signed, for any SDK level: the SHA-256 "
                  "of a certificate or of a public key, the file of a certificate, or a package "
                  "that the signer has signed. Several may be given")
      ->type_name("KEY|CERT|APK")
      ->allow_extra_args(false);
  parser.add_flag("--same-signer", options.sameSigner,
                  "Refuse files that are not of one set with the first: the same signer, package "
                  "name and version code");
  parser.add_flag("--allow-v1", rules.allowsJar,
                  "Let a JAR signature show the signer, if it covers every entry");
  parser.add_option("--package", rules.packageName, "Refuse packages with another name")
      ->type_name("NAME");
  AcceptText(parser.get_option("--package"));
  parser.add_option("--min-scheme", rules.minScheme, "Refuse packages verified by a lower scheme")
      ->type_name("N");
  AcceptNumbers(parser.get_option("--min-scheme"), 1, 3);
  parser.add_flag("--strict", rules.isStrict, "Refuse packages with a warning");
  parser.add_option("--fail-on", rules.refused, "Refuse packages with one of these warnings")
      ->type_name("CODE,...")
      ->delimiter(',')
      ->allow_extra_args(false);
  AcceptOneOf(parser.get_option("--fail-on"), "codes of warnings", WarningCodes());
}

}  // namespace

CommandRun DeclareVerify(CLI::App& parser) {
  constexpr int32_t kLargestLimit = 1000000;
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
      .add_option(
          "--sdk", options->sdk,
          "Verify as a platform of SDK level N does, or of each level from N to M (default: "
          "$QUILLON_SDK, or 30); a device uses its own level")
      ->type_name("N[-M]");
  AcceptOnly(parser.get_option("--sdk"), "an SDK level such as 30, or a range such as 28-35",
             [](const std::string& text) { return ParseSdkLevels(text).has_value(); });
  DeclareRules(parser, *options);
  parser.add_flag("--halyx-filter", options->halyxFilter,
                  "Do not verify packages outside the Halyx feature, like the platform");
  parser.add_flag("-v,--verbose", options->verbose, "Show the log lines of each file");
  parser.add_option("-j,--jobs", options->jobs, "Verify up to JOBS packages at the same time")
      ->type_name("JOBS");
  AcceptNumbers(parser.get_option("--jobs"), 1, std::numeric_limits<int32_t>::max());
  parser
      .add_option("--time-limit", options->limits.seconds,
                  "Give up a file after S seconds of processor time, or five times as long by the "
                  "clock")
      ->type_name("S")
      ->capture_default_str();
  AcceptNumbers(parser.get_option("--time-limit"), 1, kLargestLimit);
  parser
      .add_option(
          "--memory-limit", options->limits.mebibytes,
          "Give up a file that needs more than MIB MiB of memory; mapped files do not count")
      ->type_name("MIB")
      ->capture_default_str();
  AcceptNumbers(parser.get_option("--memory-limit"), 1, kLargestLimit);
  SetHelp(
      parser,
      {{{"Verify one package", "quillon verify app.apk"},
        {"Verify many, four at a time, and print only what is not verified",
         "quillon verify -q -j 4 -- *.apk"},
        {"Verify all packages under a folder",
         "find . -name '*.apk' -print0 | quillon verify --files-from0 -"},
        {"Verify that an update is from whoever signed the old package",
         "quillon verify --signer old.apk app.apk"},
        {"Write the verdict and its reason as JSON", "quillon verify --json app.apk >app.json"},
        {"Verify a file whose name starts with a dash", "quillon verify -- -x.apk"}},
       {{kDone, "every package was verified"},
        {kFailed,
         "a package was refused; this includes a damaged one whose manifest is missing or "
         "unreadable. Or the output could not be written"},
        {kUsage,
         "wrong usage; what --signer names cannot be used; or the variable QUILLON_SDK is not a "
         "number"},
        {kUnreadable,
         "no verdict: a file could not be read or mapped, is not a ZIP archive, changed while "
         "it was read, or cost more than it was allowed"},
        {kUnverified,
         "a file was not verified: it is an archive but not a package, or is outside the Halyx "
         "feature"}},
       "If several of 1 to 4 apply, the smallest is returned."});
  return [options] { return Verify(*options); };
}

}  // namespace Quill::Tool
