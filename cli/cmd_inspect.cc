// SPDX-License-Identifier: Apache-2.0

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include <quillon/file.h>

#include "anatomy/blame.h"
#include "cli/child_queue.h"
#include "cli/commands.h"
#include "cli/help.h"
#include "cli/html.h"
#include "cli/inspection.h"
#include "cli/log_recorder.h"
#include "cli/new_file.h"
#include "cli/output.h"
#include "cli/regular_file.h"
#include "cli/sdk_level.h"
#include "cli/usage.h"

namespace Quill::Tool {
namespace {

struct InspectOptions {
  std::string file;
  std::string field;
  std::string sdk;   // empty: not given
  std::string html;  // where the page goes; "-": standard output; empty: no page
  VerifyRules rules;
  bool json = false;
  ChildLimits limits = {/*seconds=*/120, /*mebibytes=*/1024};
};

// What the child reports: one of these, or a digit for its status, and a diagnostic when there is
// one. All other output is in the file.
constexpr char kNoSuchField = 'f';
constexpr char kFirstStatus = '0';

constexpr size_t kMostSigners = 1000;

// A file in memory, which takes output of any length. It disappears with the process.
class OutputFile {
 public:
  // Throws std::system_error when there is none.
  OutputFile() : file_(memfd_create("quillon-inspect", MFD_CLOEXEC)) {
    if (file_.GetFd() < 0) throw std::system_error(errno, std::generic_category(), "memfd_create");
  }

  // Starts again: a child may be given a second chance.
  void Clear() const {
    if (ftruncate(file_.GetFd(), 0) != 0 || lseek(file_.GetFd(), 0, SEEK_SET) != 0) Throw();
  }

  void Append(std::string_view text) const {
    while (!text.empty()) {
      const ssize_t count = write(file_.GetFd(), text.data(), text.size());
      if (count < 0 && errno != EINTR) Throw();
      if (count > 0) text.remove_prefix(static_cast<size_t>(count));
    }
  }

  // Gives `take` what was written, piece by piece, as long as it returns true.
  template <class Take>
  [[nodiscard]] bool Read(Take take) const {
    std::array<char, 1 << 16> piece;
    off_t offset = 0;
    for (;;) {
      const ssize_t count = pread(file_.GetFd(), piece.data(), piece.size(), offset);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) Throw();
      if (count == 0) return true;
      offset += count;
      if (!take(std::string_view(piece.data(), static_cast<size_t>(count)))) return false;
    }
  }

 private:
  [[noreturn]] static void Throw() {
    throw std::system_error(errno, std::generic_category(), "output");
  }

  Fd file_;
};

// What the child has written is checked once more before anybody reads it: the child may be out of
// its mind.

// JSON and pages are printable ASCII, and their text can be too long for a line in memory.
std::string OnlyAscii(std::string_view text) {
  std::string shown(text);
  for (char& c : shown) {
    if (c != '\n' && (c < ' ' || c > '~')) c = '?';
  }
  return shown;
}

bool PrintLines(const OutputFile& output) {
  std::string line;
  return output.Read([&line](std::string_view text) {
    for (size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
      line += text.substr(0, end);
      if (!PrintLine(line)) return false;
      line.clear();
      text.remove_prefix(end + 1);
    }
    line += text;
    return true;
  });
}

// Writes the page around its body. Its start, with the policy, is not the child's.
bool WritePage(const InspectOptions& options, const OutputFile& output) {
  const std::string start = PageStart(options.file);
  if (options.html == "-") {
    return PrintText(start) &&
           output.Read([](std::string_view text) { return PrintText(OnlyAscii(text)); }) &&
           PrintText(PageEnd());
  }
  NewFile page(options.html);
  page.Append(start);
  const bool isWhole = output.Read([&page](std::string_view text) {
    page.Append(OnlyAscii(text));
    return true;
  });
  page.Append(PageEnd());
  if (isWhole) page.PutInPlace();
  return isWhole;
}

bool PrintOutput(const InspectOptions& options, const OutputFile& output) {
  if (!options.html.empty()) return WritePage(options, output);
  if (!options.json) return PrintLines(output);
  return output.Read([](std::string_view text) { return PrintText(OnlyAscii(text)); });
}

// Returns what is wrong with options that go together, or an empty text.
std::string FindConflict(const InspectOptions& options) {
  if (options.html.empty()) return "";
  if (options.json) return "--html and --json exclude each other";
  if (!options.field.empty()) return "--html shows the whole file: it takes no --field";
  struct stat page = {};
  struct stat file = {};
  const bool isSame = stat(options.html.c_str(), &page) == 0 &&
                      stat(options.file.c_str(), &file) == 0 && page.st_dev == file.st_dev &&
                      page.st_ino == file.st_ino;
  return isSame ? "--html would replace the package" : "";
}

// Runs in the child. Returns its report.
std::string Inspect(const InspectOptions& options, const OutputFile& output) {
  output.Clear();
  Inspection inspection;
  // One open file for both readings, so that they see the same one.
  const RegularFile opened = OpenRegularFile(options.file);
  inspection.report = VerifyPackage(
      opened.fd ? "/proc/self/fd/" + std::to_string(opened.fd->GetFd()) : options.file,
      options.rules);
  inspection.report.file = options.file;
  const PackageReport& report = inspection.report;
  std::shared_ptr<MapFile> mapping = opened.fd ? MapFileRO(opened.fd->GetFd()) : nullptr;
  const auto sink = [&output](std::string_view text) { output.Append(text); };
  if (mapping) {
    const Anatomy::Outcome outcome = {static_cast<int>(report.scheme),
                                      report.verdict.status == Status::kVerified, report.refusals};
    inspection.package = Anatomy::ReadPackage(std::move(mapping));
    const Anatomy::Package& package = inspection.package;
    inspection.signers = Anatomy::SignersOf(package, kMostSigners);
    inspection.coverage = Anatomy::CoverageOf(package, outcome);
    const auto& refusal = report.verdict.reason.refusal;
    if (refusal) inspection.blamed = Anatomy::BlamedField(package, *refusal);
    LocateFields(package, inspection.report);
    inspection.field = NumberedPath(package, options.field);
    if (Find(package.file, inspection.field) == nullptr) return {kNoSuchField};
  } else if (!options.json) {
    return static_cast<char>(kFirstStatus + ExitOf(report.verdict.status)) + ToText(report);
  }
  if (options.json) {
    WriteJson(inspection, sink);
  } else if (!options.html.empty()) {
    WriteHtml(inspection, sink);
  } else {
    WriteText(inspection, sink);
  }
  return {static_cast<char>(kFirstStatus + ExitOf(report.verdict.status))};
}

ExitStatus PrintEnd(const InspectOptions& options, const ChildResult& result) {
  PackageReport report = ReportOfEnd(options.file, options.rules, result, options.limits);
  if (result.end == ChildEnd::kTimeLimit || result.end == ChildEnd::kLate ||
      result.end == ChildEnd::kMemoryLimit) {
    report.verdict.reason.hint =
        "if you trust it, use quillon verify, which has --time-limit and --memory-limit";
  }
  if (options.json) {
    Inspection inspection;
    inspection.report = report;
    bool isPrinted = true;
    WriteJson(inspection, [&](std::string_view text) { isPrinted = isPrinted && PrintText(text); });
    if (!isPrinted) return kFailed;
  } else {
    PrintDiagnostic(ToText(report));
  }
  return ExitOf(report.verdict.status);
}

ExitStatus RunInspect(InspectOptions& options) {
  constexpr std::chrono::milliseconds kLong(1000);
  if (const std::string conflict = FindConflict(options); !conflict.empty()) {
    PrintDiagnostic(conflict);
    return kUsage;
  }
  if (options.sdk.empty() && !IsSdkLevelUsable()) return kUsage;
  if (!options.sdk.empty()) options.rules.sdk = ParseSdkLevels(options.sdk);
  LogRecorder::Install();
  const OutputFile output;
  bool isStarted = false;
  ChildQueue children(1, options.limits, [&]() -> ChildQueue::Work {
    if (std::exchange(isStarted, true)) return nullptr;
    return [&] { return Inspect(options, output); };
  });
  while (children.WaitFor(kLong) == ChildQueue::State::kWaiting) {
  }
  ChildResult result = children.Take();
  if (result.end == ChildEnd::kReported && result.report.empty()) result.end = ChildEnd::kCrashed;
  if (result.end != ChildEnd::kReported) return PrintEnd(options, result);
  if (result.report[0] == kNoSuchField) {
    PrintDiagnostic("no such field: " + options.field);
    return kUsage;
  }
  if (result.report.size() > 1) {
    PrintDiagnostic(result.report.substr(1));
  } else if (!PrintOutput(options, output)) {
    return kFailed;
  }
  return static_cast<ExitStatus>(result.report[0] - kFirstStatus);
}

}  // namespace

CommandRun DeclareInspect(CLI::App& parser) {
  const auto options = std::make_shared<InspectOptions>();
  parser.add_option("FILE", options->file, "The package to look into")->type_name("")->required();
  parser.add_flag("--json", options->json, "Print one JSON object, with every field of the file");
  parser
      .add_option("--html", options->html,
                  "Write a page with a picture of the package to OUT, or to standard output if OUT "
                  "is -")
      ->type_name("OUT");
  parser
      .add_option("--field", options->field,
                  "Show this branch alone, and its bytes, such as signingBlock.v3.signers[0], or "
                  "entries[classes.dex] for the entry of that name")
      ->type_name("PATH");
  AcceptText(parser.get_option("--field"));
  parser
      .add_option("--sdk", options->sdk,
                  "Verify as a platform of SDK level N does (default: $QUILLON_SDK, or 30)")
      ->type_name("N");
  AcceptOnly(parser.get_option("--sdk"), "an SDK level such as 30", [](const std::string& text) {
    const auto levels = ParseSdkLevels(text);
    return levels && levels->min == levels->max;
  });
  SetHelp(parser, {{{"Show what a package is made of", "quillon inspect app.apk"},
                    {"Show its first v3 signer, and the bytes of it",
                     "quillon inspect --field 'signingBlock.v3.signers[0]' app.apk"},
                    {"Show one of its entries",
                     "quillon inspect --field 'entries[AndroidManifest.xml]' app.apk"},
                    {"Draw it in a page for a browser", "quillon inspect --html app.html app.apk"},
                    {"Write every field as JSON", "quillon inspect --json app.apk >app.json"}},
                   {{kDone, "the package was verified"},
                    {kFailed, "it was refused, or the output could not be written"},
                    {kUsage, "wrong usage; this includes a field that the file does not have"},
                    {kUnreadable, "no verdict, as for quillon verify"},
                    {kUnverified, "not verified, as for quillon verify"}}});
  return [options] { return RunInspect(*options); };
}

}  // namespace Quill::Tool
