// SPDX-License-Identifier: Apache-2.0

#include "cli/package_report.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include <quillon/file.h>

#include "anatomy/blame.h"
#include "cli/output.h"
#include "cli/package_evidence.h"
#include "cli/regular_file.h"
#include "cli/rules.h"
#include "cli/sdk_level.h"
#include "cli/zip_directory.h"
#include "findings/recorder.h"
#include "util/escape.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

using Json = nlohmann::ordered_json;

// True when the file still has the size and the time of last change that it had then.
bool IsAsBefore(int fd, const struct stat& before) {
  struct stat now;
  return fstat(fd, &now) == 0 && now.st_size == before.st_size &&
         now.st_ctim.tv_sec == before.st_ctim.tv_sec &&
         now.st_ctim.tv_nsec == before.st_ctim.tv_nsec;
}

// Fills in what the library found, and a verdict on it.
void Describe(Apk& apk, int fd, const Findings& findings, PackageReport& report) {
  const bool isGoodApk = apk.IsGoodApk();
  report.isGoodZip = apk.IsGoodZip();
  report.isApk = apk.IsApk();
  report.packageName = apk.GetPackageName();
  report.halyxPermissionRequired = apk.IsHalyxPermissionRequired();
  report.ignoreHalyxFilter = apk.ForcedIgnoreHalyxFilter();
  // A package that could not be mapped may have verified by its JAR signature alone.
  if (isGoodApk && !findings.Has(Reason::kNotMapped)) {
    report.verdict = {Status::kVerified, {}, {}};
  } else {
    report.verdict = Judge(CircumstancesOf(apk, fd), findings.refusals);
    if (!HasVerdict(report)) return;
  }
  report.manufacturerKey = apk.GetManufacturerKey();
  report.scheme = apk.GetApkSignatureSchemeVersion();
  report.isGoodApk = isGoodApk;
}

// Verifies as a platform of the level that is set does, and applies the user's rules. `ranges`
// becomes those of the package's v3 signers.
void Examine(int fd, const VerifyRules& rules, PackageReport& report,
             std::vector<SdkRange>& ranges) {
  const LogRecorder log;
  const FindingsRecorder recorder;
  const Findings& findings = recorder.Get();
  Apk apk(fd, rules.ignoreHalyxFilter);
  Describe(apk, fd, findings, report);
  report.manifest = findings.manifest;
  ranges = findings.ranges;
  if (report.verdict.status == Status::kVerified) {
    report.signers = ReportSigners(findings.signers);
    const DirectoryFacts directory = ReadDirectory(fd, findings.blockOffset, findings.blockSize);
    report.warnings =
        FindWarnings(apk, findings, report.signers, directory, /*areEntriesChecked=*/false);
    ApplyRules(apk, findings, directory, rules, report);
  }
  report.log = log.Lines();
  report.refusals = findings.refusals;
}

void Locate(const Anatomy::Package& package, FileReason& reason) {
  if (!reason.refusal) return;
  FieldPlace& place = reason.place;
  place.in = Anatomy::BlamedEntry(package, *reason.refusal);
  const std::string path = Anatomy::BlamedField(package, *reason.refusal);
  const Anatomy::Place found = path.empty() ? Anatomy::Place() : FindPlace(package.file, path);
  const bool isInside = found.in != nullptr;
  if (found.field == nullptr || isInside == place.in.empty()) return;
  place = {place.in, path, found.field->offset, found.field->size};
}

void Locate(const Anatomy::Package& package, Verdict& verdict) {
  Locate(package, verdict.reason);
  for (FileReason& reason : verdict.others) Locate(package, reason);
}

// Splits `wanted` where the signer for a level may change.
std::vector<SdkRange> Split(SdkRange wanted, const std::vector<SdkRange>& ranges) {
  std::set<uint32_t> starts{wanted.min};
  const auto add = [&](uint64_t level) {
    if (wanted.min < level && level <= wanted.max) starts.insert(static_cast<uint32_t>(level));
  };
  for (const SdkRange& range : ranges) {
    add(range.min);
    add(uint64_t{range.max} + 1);
  }
  std::vector<SdkRange> pieces;
  for (auto start = starts.begin(); start != starts.end(); ++start) {
    const auto next = std::next(start);
    pieces.push_back({*start, next == starts.end() ? wanted.max : *next - 1});
  }
  return pieces;
}

// Returns the numbers of the ranges that a level is in.
std::vector<size_t> RangesWith(uint32_t sdk, const std::vector<SdkRange>& ranges) {
  std::vector<size_t> numbers;
  for (size_t i = 0; i < ranges.size(); ++i) {
    if (ranges[i].min <= sdk && sdk <= ranges[i].max) numbers.push_back(i);
  }
  return numbers;
}

int Badness(Status status) {
  const ExitStatus exit = ExitOf(status);
  return exit == kDone ? 0 : 10 - exit;
}

// Judges for all levels that count. `first` is the report for the level `sdk`, which has found
// `ranges`. Levels with the same signers are judged once. Each costs what the whole package does,
// so there is a limit; a key that is rotated needs two.
PackageReport ExamineLevels(int fd, uint32_t sdk, const VerifyRules& rules,
                            const PackageReport& blank, const std::vector<SdkRange>& ranges,
                            PackageReport first) {
  constexpr size_t kMostJudged = 100;
  const SdkRange wanted = rules.sdk.value_or(SdkRange{0, kMostSdkLevel});
  std::map<std::vector<size_t>, PackageReport> reports;
  reports.emplace(RangesWith(sdk, ranges), first);
  std::vector<LevelReport> levels;
  PackageReport worst;
  for (const SdkRange& piece : Split(wanted, ranges)) {
    const std::vector<size_t> signers = RangesWith(piece.min, ranges);
    // Unless the user names levels, those that nobody signed for do not count.
    if (!rules.sdk && signers.empty() && !ranges.empty()) continue;
    auto known = reports.find(signers);
    if (known == reports.end() && reports.size() == kMostJudged) {
      PackageReport report = blank;
      report.verdict = {
          Status::kUndecided,
          {"too-many-signers",
           fmt::format("its signers differ so often that more than {} SDK levels would count",
                       kMostJudged),
           "verify it for one level with --sdk", ""}};
      return report;
    }
    if (known == reports.end()) {
      if (!SetSdkLevel(piece.min)) return first;
      PackageReport report = blank;
      std::vector<SdkRange> ignored;
      Examine(fd, rules, report, ignored);
      known = reports.emplace(signers, std::move(report)).first;
    }
    const PackageReport& report = known->second;
    const bool isVerified = report.verdict.status == Status::kVerified;
    if (levels.empty() || Badness(report.verdict.status) > Badness(worst.verdict.status)) {
      worst = report;
    }
    levels.push_back({piece, report.verdict,
                      isVerified ? Sha256Of(report.manufacturerKey) : std::string(),
                      report.signers});
  }
  // When all are verified, the level that is set shows who signed the package.
  const bool areAllVerified = !levels.empty() && worst.verdict.status == Status::kVerified;
  if (areAllVerified && first.verdict.status == Status::kVerified) worst = first;
  if (levels.empty()) return first;
  worst.levels = std::move(levels);
  return worst;
}

FileReason WhyNoReport(const ChildResult& result, const ChildLimits& limits) {
  switch (result.end) {
    case ChildEnd::kTimeLimit:
      return {"time-limit", fmt::format("takes more than {} s of processor time", limits.seconds),
              "raise --time-limit if you trust it", ""};
    case ChildEnd::kLate:
      return {"time-limit", fmt::format("takes more than {} s by the clock", 5 * limits.seconds),
              "raise --time-limit if you trust it", ""};
    case ChildEnd::kMemoryLimit:
      return {
          "memory-limit",
          fmt::format("needs more than {} MiB of memory, or more than there is", limits.mebibytes),
          "raise --memory-limit if you trust it", ""};
    case ChildEnd::kLongReport:
      return {"memory-limit", "there is too much to report of it", "report it as a bug", ""};
    case ChildEnd::kFileLost:
      return {"changed", "it became shorter while it was read, or a part of it cannot be read",
              "verify it when nobody writes to it", ""};
    case ChildEnd::kNotStarted:
      return {"no-process", "the system has no process, thread or descriptor left to read it",
              "end other programs, or raise the limits (ulimit -n, ulimit -u)", ""};
    case ChildEnd::kReported:
    case ChildEnd::kCrashed:
      break;
  }
  if (result.signal == 0) {
    return {"crashed", "the process that read it ended too early", "report it as a bug", ""};
  }
  return {"crashed",
          fmt::format("the process that read it died of signal {} ({})", result.signal,
                      strsignal(result.signal)),
          result.signal == SIGKILL ? "end other programs: the system may lack memory"
                                   : "report it as a bug",
          ""};
}

// Absent parts are left out.
Json ToJson(const FileReason& reason) {
  Json object = {{"code", reason.code},
                 {"message", EscapeInvalidUtf8(reason.message)},
                 {"hint", reason.hint.empty() ? Json() : Json(reason.hint)}};
  if (!reason.name.empty()) object["name"] = EscapeInvalidUtf8(reason.name);
  if (!reason.place.in.empty()) object["in"] = EscapeInvalidUtf8(reason.place.in);
  if (!reason.place.field.empty()) {
    object.update({{"field", reason.place.field},
                   {"offset", reason.place.offset},
                   {"size", reason.place.size}});
  }
  for (const auto& [name, bytes] :
       {std::pair("expected", &reason.expected), {"found", &reason.found}}) {
    if (!bytes->empty()) object[name] = ToHex(bytes->data(), bytes->size());
  }
  return object;
}

// Null where it is not known.
template <typename Number>
Json OrNull(const std::optional<Number>& number) {
  return number ? Json(*number) : Json();
}

Json LevelsToJson(const std::vector<LevelReport>& levels) {
  Json array = Json::array();
  for (const LevelReport& level : levels) {
    const Verdict& verdict = level.verdict;
    const bool isVerified = verdict.status == Status::kVerified;
    array.push_back({{"from", level.levels.min},
                     {"to", level.levels.max},
                     {"status", NameOf(verdict.status)},
                     {"reason", isVerified ? Json() : ToJson(verdict.reason)},
                     {"identity", isVerified ? Json(level.identitySha256) : Json()}});
  }
  return array;
}

// Adds what the verifier found of the signers. All is null unless it verified the package.
void AddSigners(const PackageReport& report, Json& object) {
  object["signers"] = Json::array();
  for (const char* name : {"identity", "certificateSha256", "contentDigest"})
    object[name] = nullptr;
  for (const SignerReport& signer : report.signers) object["signers"].push_back(ToJson(signer));
  if (report.signers.empty()) return;
  const SignerReport& main = report.signers.front();
  object["identity"] = {{"sha256", Sha256Of(report.manufacturerKey)},
                        {"keyType", main.Oldest().type},
                        {"certificateSha256", main.Oldest().certificateSha256}};
  object["certificateSha256"] = main.Current().certificateSha256;
  if (main.contentDigest.empty()) return;
  const bool isSha512 = main.contentDigest.size() == 64;
  object["contentDigest"] = {
      {"algorithm", isSha512 ? "sha512" : "sha256"},
      {"value", ToHex(main.contentDigest.data(), main.contentDigest.size())}};
}

// Names the first levels for which the package is not verified.
std::string LevelsText(const PackageReport& report) {
  const auto found = std::find_if(
      report.levels.begin(), report.levels.end(),
      [&](const LevelReport& level) { return level.verdict.status == report.verdict.status; });
  if (found == report.levels.end()) return "";
  return " at SDK level " + SdkRangeText(found->levels.min, found->levels.max);
}

// Names each digest that a verified package has at some SDK level, with these levels.
template <class DigestOf>
std::string DigestsText(const std::vector<LevelReport>& levels, DigestOf digestOf) {
  std::vector<std::pair<std::string, std::vector<SdkRange>>> digests;  // by their first level
  for (const LevelReport& level : levels) {
    const std::string digest = digestOf(level);
    auto known = std::find_if(digests.begin(), digests.end(),
                              [&](const auto& other) { return other.first == digest; });
    if (known == digests.end()) known = digests.insert(digests.end(), {digest, {}});
    std::vector<SdkRange>& ranges = known->second;
    const SdkRange range = level.levels;
    if (!ranges.empty() && ranges.back().max + 1 == range.min) {
      ranges.back().max = range.max;
    } else {
      ranges.push_back(range);
    }
  }
  std::vector<std::string> parts;
  for (const auto& [digest, ranges] : digests) {
    std::vector<std::string> texts;
    for (const SdkRange& range : ranges) texts.push_back(SdkRangeText(range.min, range.max));
    parts.push_back(fmt::format("sha256:{} at SDK {}", digest, fmt::join(texts, " and ")));
  }
  return fmt::format("{}", fmt::join(parts, ", "));
}

// Names the keys of a verified package, and their certificates. Several keys are "keys": a script
// that looks for "key sha256:" must not take one of them for the only one.
std::string KeysText(const PackageReport& report) {
  const std::vector<LevelReport>& levels = report.levels;
  const bool isOneKey = std::all_of(levels.begin(), levels.end(), [&](const LevelReport& level) {
    return level.identitySha256 == levels.front().identitySha256;
  });
  if (!isOneKey) {
    return "keys " +
           DigestsText(levels, [](const LevelReport& level) { return level.identitySha256; }) +
           ", certificates " + DigestsText(levels, [](const LevelReport& level) {
             return level.signers.front().Current().certificateSha256;
           });
  }
  std::string text = fmt::format("key sha256:{} ({} bytes)", Sha256Of(report.manufacturerKey),
                                 report.manufacturerKey.size());
  if (!report.signers.empty()) {
    text += ", certificate sha256:" + report.signers.front().Current().certificateSha256;
  }
  return text;
}

}  // namespace

PackageReport VerifyPackage(const std::string& file, const VerifyRules& rules) {
  PackageReport report;
  report.file = file;
  report.ignoreHalyxFilter = rules.ignoreHalyxFilter;
  const RegularFile opened = OpenRegularFile(file);
  if (opened.fd) report.size = static_cast<uint64_t>(opened.info.st_size);
  const bool isEmpty = report.size == 0U;
  if (!opened.fd || isEmpty) {
    report.verdict = {
        Status::kUnreadable,
        {isEmpty ? "archive.empty" : "unreadable", isEmpty ? "empty file" : opened.obstacle,
         isEmpty ? "get it again from its source" : "", ""}};
    return report;
  }
  const int fd = opened.fd->GetFd();
  const PackageReport blank = report;
  const uint32_t sdk = rules.sdk ? rules.sdk->min : CurrentSdkLevel();
  const bool isForOne =
      !SetSdkLevel(sdk) || (rules.sdk ? rules.sdk->min == rules.sdk->max : !rules.asksForSigner);
  std::vector<SdkRange> ranges;
  Examine(fd, rules, report, ranges);
  if (!isForOne) report = ExamineLevels(fd, sdk, rules, blank, ranges, std::move(report));
  // Of what is no archive at all, nothing is known.
  const Status status = report.verdict.status;
  const bool hasFields = status == Status::kRefused ||
                         (status == Status::kUnreadable && report.verdict.reason.refusal);
  if (rules.locatesFields && hasFields) {
    const std::shared_ptr<MapFile> mapping = MapFileRO(fd);
    if (mapping) LocateFields(Anatomy::ReadPackage(mapping), report);
  }
  if (!IsAsBefore(fd, opened.info)) {
    report = blank;
    report.verdict = {
        Status::kUndecided,
        {"changed", "it changed while it was read", "verify it when nobody writes to it", ""}};
  }
  return report;
}

void LocateFields(const Anatomy::Package& package, PackageReport& report) {
  Locate(package, report.verdict);
  for (LevelReport& level : report.levels) Locate(package, level.verdict);
}

PackageReport ReportOfEnd(const std::string& file, const VerifyRules& rules,
                          const ChildResult& result, const ChildLimits& limits) {
  PackageReport report;
  report.file = file;
  report.ignoreHalyxFilter = rules.ignoreHalyxFilter;
  report.verdict = {Status::kUndecided, WhyNoReport(result, limits)};
  return report;
}

std::string ToText(const PackageReport& report) {
  const Status status = report.verdict.status;
  const FileReason& reason = report.verdict.reason;
  std::string text = FileText(report.file);
  const std::string why =
      reason.code + ": " + reason.message + (reason.hint.empty() ? "" : ". Next: " + reason.hint);
  if (!HasVerdict(report)) return text + ": " + why;

  text += status == Status::kVerified  ? ": verified"
          : status == Status::kRefused ? ": refused"
                                       : ": not verified";
  // A package without a signature that counts was tried by v1 in the end; that says nothing.
  const bool isOfScheme = report.isGoodApk || reason.code[0] == 'v';
  if (isOfScheme && report.scheme != ApkSignatureScheme::kNone) {
    text += fmt::format(", v{}", static_cast<int>(report.scheme));
  }
  if (report.levels.size() > 1 && status != Status::kVerified) text += LevelsText(report);
  if (report.isApk) {
    text +=
        ", " + (report.packageName.empty() ? "package name unknown" : NameText(report.packageName));
  }
  if (status != Status::kVerified) return text + ", " + why;
  text += ", " + KeysText(report);
  std::vector<std::string> codes;
  for (const FileWarning& warning : report.warnings) codes.push_back(warning.code);
  return codes.empty() ? text : text + fmt::format(". Warnings: {}", fmt::join(codes, ", "));
}

std::string ToJson(const PackageReport& report) {
  Json log = Json::array();
  for (const LogLine& line : report.log) {
    log.push_back({std::string(1, line.priority), EscapeInvalidUtf8(line.text)});
  }
  const Verdict& verdict = report.verdict;
  Json others = Json::array();
  for (const FileReason& reason : verdict.others) others.push_back(ToJson(reason));
  Json warnings = Json::array();
  for (const FileWarning& warning : report.warnings) {
    warnings.push_back(
        {{"code", warning.code}, {"message", warning.message}, {"count", warning.count}});
  }
  const ManifestFacts& manifest = report.manifest;
  Json object = {
      {"schemaVersion", 2},
      {"file", EscapeInvalidUtf8(report.file)},
      {"size", OrNull(report.size)},
      {"status", NameOf(verdict.status)},
      {"reason", verdict.status == Status::kVerified ? Json() : ToJson(verdict.reason)},
      {"also", others},
      {"warnings", warnings},
  };
  AddSigners(report, object);
  object.update({
      {"versionCode", OrNull(manifest.versionCode)},
      {"minSdk", OrNull(manifest.minSdk)},
      {"targetSdk", OrNull(manifest.targetSdk)},
      {"debuggable", OrNull(manifest.isDebuggable)},
      {"isGoodZip", report.isGoodZip},
      {"isApk", report.isApk},
      {"isGoodApk", report.isGoodApk},
      {"scheme", static_cast<int>(report.scheme)},
      {"packageName", EscapeInvalidUtf8(report.packageName)},
      {"halyxPermissionRequired", report.halyxPermissionRequired},
      {"ignoreHalyxFilter", report.ignoreHalyxFilter},
      {"manufacturerKeySha256", nullptr},
      {"manufacturerKeyLength", report.manufacturerKey.size()},
      {"log", log},
  });
  if (!report.manufacturerKey.empty()) {
    object["manufacturerKeySha256"] = Sha256Of(report.manufacturerKey);
  }
  if (!report.levels.empty()) object["levels"] = LevelsToJson(report.levels);
  if (!HasVerdict(report)) object["error"] = EscapeInvalidUtf8(verdict.reason.message);
  return object.dump(/*indent=*/-1, /*indent_char=*/' ', /*ensure_ascii=*/true);
}

}  // namespace Quill::Tool
