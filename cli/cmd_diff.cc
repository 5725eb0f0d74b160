// SPDX-License-Identifier: Apache-2.0

#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include <quillon/file.h>

#include "cli/child_queue.h"
#include "cli/commands.h"
#include "cli/content_diff.h"
#include "cli/diff_text.h"
#include "cli/help.h"
#include "cli/log_recorder.h"
#include "cli/output.h"
#include "cli/package_report.h"
#include "cli/regular_file.h"
#include "cli/sdk_level.h"
#include "cli/signing_state.h"
#include "cli/usage.h"

namespace Quill::Tool {
namespace {

using Json = nlohmann::ordered_json;

struct DiffOptions {
  std::string a;
  std::string b;
  bool json = false;
  ChildLimits limits = {/*seconds=*/120, /*mebibytes=*/1024};
};

// One of the two files. All children read the same open file.
struct DiffSide {
  const char* name;  // in the output
  const std::string& file;
  RegularFile opened;
};

std::shared_ptr<MapFile> MapSide(const DiffSide& side) {
  return side.opened.fd ? MapFileRO(side.opened.fd->GetFd()) : nullptr;
}

bool HasChanged(const DiffSide& side) {
  if (!side.opened.fd) return false;
  const struct stat& before = side.opened.info;
  struct stat now;
  return fstat(side.opened.fd->GetFd(), &now) != 0 || now.st_size != before.st_size ||
         now.st_ctim.tv_sec != before.st_ctim.tv_sec ||
         now.st_ctim.tv_nsec != before.st_ctim.tv_nsec;
}

// A JAR signature shows a signer if it covers every entry.
VerifyRules RulesOfDiff() {
  VerifyRules rules;
  rules.asksForSigner = true;
  rules.allowsJar = true;
  return rules;
}

// What is found out about one file. Besides what the output has: "text", the verdict in words, and
// "levels", the signers.
Json DescribeSide(const PackageReport& report, const Anatomy::Package* package) {
  const std::string text = ToText(report);
  return {{"verdict", Json::parse(ToJson(report))},
          {"signing", SigningFacts(report, package)},
          {"isReadable", HasVerdict(report)},
          {"text", Json::binary({text.begin(), text.end()})},  // its names are any bytes
          {"levels", SignersByLevel(report)}};
}

// Runs in a child.
Json JudgeSide(const DiffSide& side) {
  PackageReport report = VerifyPackage(
      side.opened.fd ? "/proc/self/fd/" + std::to_string(side.opened.fd->GetFd()) : side.file,
      RulesOfDiff());
  report.file = side.file;
  if (const auto mapping = MapSide(side)) {
    const Anatomy::Package package = Anatomy::ReadPackage(mapping);
    LocateFields(package, report);
    return DescribeSide(report, &package);
  }
  return DescribeSide(report, nullptr);
}

// Runs in a child.
Json CompareSides(const DiffSide& a, const DiffSide& b) {
  auto left = MapSide(a);
  auto right = MapSide(b);
  if (!left || !right) {
    return {{"obstacle", "it cannot be mapped"}, {"in", left ? b.name : a.name}};
  }
  return CompareContents(std::move(left), std::move(right));
}

// Returns what a child sent; null when it ended without a whole report.
Json ReadResult(ChildResult& result) {
  if (result.end != ChildEnd::kReported) return nullptr;
  Json found = Json::from_msgpack(result.report, /*strict=*/true, /*allow_exceptions=*/false);
  if (found.is_object()) return found;
  result.end = ChildEnd::kCrashed;
  return nullptr;
}

// Returns the names of the facts that differ.
Json DifferingFacts(const Json& a, const Json& b) {
  Json names = Json::array();
  for (const auto& [name, texts] : a.items()) {
    if (texts != b.at(name)) names.push_back(name);
  }
  return names;
}

class Diff {
 public:
  explicit Diff(const DiffOptions& options)
      : options_(options),
        a_{"a", options.a, OpenRegularFile(options.a)},
        b_{"b", options.b, OpenRegularFile(options.b)} {}

  ExitStatus Run() {
    std::array<ChildResult, 3> results = RunChildren();
    Json left = SideOf(a_, results[0]);
    Json right = SideOf(b_, results[1]);
    const bool isReadable = left.at("isReadable") && right.at("isReadable");
    Json contents = isReadable ? ContentsOf(results[2]) : Json();
    for (const DiffSide* side : {&a_, &b_}) {
      if (contents.is_object() && HasChanged(*side)) {
        PrintDiagnostic(FileText(side->file) + ": changed: it changed while it was read");
        contents = nullptr;
      }
    }
    const bool isCompared = contents.is_object();
    const std::string signer =
        isCompared ? CompareSigners(left.at("levels"), right.at("levels")) : "unknown";
    const Json signing = DifferingFacts(left.at("signing"), right.at("signing"));
    const bool isSame =
        isCompared && signer == "same" && signing.empty() && contents.at("sameContent") != "no";
    Json diff = {{"schemaVersion", 1},
                 {"same", isSame},
                 {"signer", signer},
                 {"signing", signing},
                 {"sameContent", nullptr}};
    if (isCompared) diff.update(contents);
    for (const auto& [name, side] : {std::pair("a", &left), {"b", &right}}) {
      diff[name] = {{"verdict", side->at("verdict")}, {"signing", side->at("signing")}};
    }
    if (!(options_.json ? PrintText(Dump(diff) + '\n') : !isCompared || PrintDiff(diff))) {
      return kFailed;
    }
    if (!isCompared) return kUnreadable;
    return isSame ? kDone : kFailed;
  }

 private:
  // A child may be out of its mind, and send what is no UTF-8.
  static std::string Dump(const Json& json) {
    return json.dump(/*indent=*/-1, /*indent_char=*/' ', /*ensure_ascii=*/true,
                     Json::error_handler_t::replace);
  }

  std::array<ChildResult, 3> RunChildren() {
    const std::array<std::function<Json()>, 3> works = {[this] { return JudgeSide(a_); },
                                                        [this] { return JudgeSide(b_); },
                                                        [this] { return CompareSides(a_, b_); }};
    size_t started = 0;
    ChildQueue children(works.size(), options_.limits, [&]() -> ChildQueue::Work {
      if (started == works.size()) return nullptr;
      return [work = works[started++]] {
        std::string bytes;
        Json::to_msgpack(work(), bytes);
        return bytes;
      };
    });
    std::array<ChildResult, 3> results;
    for (ChildResult& result : results) {
      while (children.WaitFor(std::chrono::hours(1)) == ChildQueue::State::kWaiting) {
      }
      result = children.Take();
    }
    return results;
  }

  // Prints a diagnostic when there is no verdict on the file, unless the output has it.
  Json SideOf(const DiffSide& side, ChildResult& result) const {
    Json found = ReadResult(result);
    if (found.is_null()) {
      const PackageReport report = ReportOfEnd(side.file, RulesOfDiff(), result, options_.limits);
      found = DescribeSide(report, nullptr);
    }
    if (!found.at("isReadable") && !options_.json) {
      const auto& text = found.at("text").get_binary();
      PrintDiagnostic(std::string(text.begin(), text.end()));
    }
    return found;
  }

  // Returns null, with a diagnostic, when the contents could not be compared.
  Json ContentsOf(ChildResult& result) const {
    Json found = ReadResult(result);
    if (found.is_null()) {
      const std::string both = FileText(a_.file) + " and " + FileText(b_.file);
      const PackageReport report = ReportOfEnd(both, RulesOfDiff(), result, options_.limits);
      const FileReason& reason = report.verdict.reason;
      PrintDiagnostic(both + ": " + reason.code + ": " + reason.message +
                      (reason.hint.empty() ? "" : ". Next: " + reason.hint));
      return nullptr;
    }
    if (!found.contains("obstacle")) return found;
    const DiffSide& side = found.at("in") == a_.name ? a_ : b_;
    PrintDiagnostic(FileText(side.file) + ": " + found.at("obstacle").get<std::string>());
    return nullptr;
  }

  const DiffOptions& options_;
  const DiffSide a_;
  const DiffSide b_;
};

ExitStatus RunDiff(const DiffOptions& options) {
  if (!IsSdkLevelUsable()) return kUsage;
  LogRecorder::Install();
  return Diff(options).Run();
}

}  // namespace

CommandRun DeclareDiff(CLI::App& parser) {
  constexpr int32_t kLargestLimit = 1000000;
  const auto options = std::make_shared<DiffOptions>();
  parser.add_option("A", options->a, "The old package")->type_name("")->required();
  parser.add_option("B", options->b, "The new one")->type_name("")->required();
  parser.add_flag("--json", options->json, "Print one JSON object, with every difference");
  parser
      .add_option("--time-limit", options->limits.seconds,
                  "Give up after S seconds of processor time for one file, or for their contents, "
                  "or five times as long by the clock")
      ->type_name("S")
      ->capture_default_str();
  AcceptNumbers(parser.get_option("--time-limit"), 1, kLargestLimit);
  parser
      .add_option("--memory-limit", options->limits.mebibytes,
                  "Give up when one of these needs more than MIB MiB of memory; mapped files do "
                  "not count")
      ->type_name("MIB")
      ->capture_default_str();
  AcceptNumbers(parser.get_option("--memory-limit"), 1, kLargestLimit);
  SetHelp(
      parser,
      {{{"Show what an update changes", "quillon diff old.apk new.apk"},
        {"Compare your own build with a signed one: bytes, entries, contents or no",
         "quillon diff --json own.apk published.apk | jq -r .sameContent"}},
       {{kDone, "both verified, they are signed in the same way, and their contents are the same"},
        {kFailed, "something of this differs, or the output could not be written"},
        {kUsage, "wrong usage, or the variable QUILLON_SDK is not a number"},
        {kUnreadable,
         "not compared: a file could not be read or mapped, is not a ZIP archive, changed while "
         "it was read, or cost more than it was allowed"}},
       "sameContent is the first of these that holds. bytes: the files are the same bytes without "
       "the signing block, the files of a JAR signature and an empty META-INF/, zeros between "
       "entries, and the counts, sizes and offsets that follow from these. entries: the same "
       "entries, with the same stored bytes and headers; their alignment, their order, the comment "
       "and what lies between them may differ. contents: the same names with the same extracted "
       "bytes. no: an entry was added or removed, or its content changed."});
  return [options] { return RunDiff(*options); };
}

}  // namespace Quill::Tool
