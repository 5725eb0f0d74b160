// SPDX-License-Identifier: Apache-2.0

#include "cli/package_report.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cstring>
#include <nlohmann/json.hpp>

#include <quillon/digest.h>
#include <quillon/file.h>

#include "cli/output.h"
#include "cli/package_evidence.h"
#include "cli/regular_file.h"
#include "findings/recorder.h"
#include "util/escape.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

using Json = nlohmann::ordered_json;

// True when the file still has the size and the time of last change that it had
// then.
bool IsAsBefore(int fd, const struct stat &before) {
  struct stat now;
  return fstat(fd, &now) == 0 && now.st_size == before.st_size &&
         now.st_ctim.tv_sec == before.st_ctim.tv_sec &&
         now.st_ctim.tv_nsec == before.st_ctim.tv_nsec;
}

// Fills in what the library found, and a verdict on it.
void Describe(Apk &apk, int fd, const FindingsRecorder &recorder,
              PackageReport &report) {
  const bool isGoodApk = apk.IsGoodApk();
  report.isGoodZip = apk.IsGoodZip();
  report.isApk = apk.IsApk();
  report.packageName = apk.GetPackageName();
  report.halyxPermissionRequired = apk.IsHalyxPermissionRequired();
  report.ignoreHalyxFilter = apk.ForcedIgnoreHalyxFilter();
  // A package that could not be mapped may have verified by its JAR signature
  // alone.
  if (isGoodApk && !recorder.Get().Has(Reason::kNotMapped)) {
    report.verdict = {Status::kVerified, {}, {}};
  } else {
    report.verdict = Judge(CircumstancesOf(apk, fd), recorder.Get().refusals);
    if (!HasVerdict(report))
      return;
  }
  report.manufacturerKey = apk.GetManufacturerKey();
  report.scheme = apk.GetApkSignatureSchemeVersion();
  report.isGoodApk = isGoodApk;
}

void Examine(int fd, PackageReport &report) {
  const LogRecorder log;
  const FindingsRecorder recorder;
  Apk apk(fd, report.ignoreHalyxFilter);
  Describe(apk, fd, recorder, report);
  report.log = log.Lines();
}

FileReason WhyNoReport(const ChildResult &result, const ChildLimits &limits) {
  switch (result.end) {
  case ChildEnd::kTimeLimit:
    return {
        "time-limit",
        fmt::format("takes more than {} s of processor time", limits.seconds),
        "raise --time-limit if you trust it", ""};
  case ChildEnd::kLate:
    return {
        "time-limit",
        fmt::format("takes more than {} s by the clock", 5 * limits.seconds),
        "raise --time-limit if you trust it", ""};
  case ChildEnd::kMemoryLimit:
    return {
        "memory-limit",
        fmt::format("needs more than {} MiB of memory, or more than there is",
                    limits.mebibytes),
        "raise --memory-limit if you trust it", ""};
  case ChildEnd::kLongReport:
    return {"memory-limit", "there is too much to report of it", "", ""};
  case ChildEnd::kFileLost:
    return {
        "changed",
        "it became shorter while it was read, or a part of it cannot be read",
        "verify it when nobody writes to it", ""};
  case ChildEnd::kNotStarted:
    return {"no-process",
            "the system has no process, thread or descriptor left to read it",
            "", ""};
  case ChildEnd::kReported:
  case ChildEnd::kCrashed:
    break;
  }
  if (result.signal == 0)
    return {"crashed", "the process that read it ended too early", "", ""};
  return {"crashed",
          fmt::format("the process that read it died of signal {} ({})",
                      result.signal, strsignal(result.signal)),
          "", ""};
}

// Absent parts are left out.
Json ToJson(const FileReason &reason) {
  Json object = {{"code", reason.code},
                 {"message", EscapeInvalidUtf8(reason.message)},
                 {"hint", reason.hint.empty() ? Json() : Json(reason.hint)}};
  if (!reason.name.empty())
    object["name"] = EscapeInvalidUtf8(reason.name);
  for (const auto &[name, bytes] :
       {std::pair("expected", &reason.expected), {"found", &reason.found}}) {
    if (!bytes->empty())
      object[name] = ToHex(bytes->data(), bytes->size());
  }
  return object;
}

std::string KeySha256(const PackageReport &report) {
  const std::vector<uint8_t> digest =
      ComputeSHA256Digest(report.manufacturerKey);
  return ToHex(digest.data(), digest.size());
}

} // namespace

PackageReport VerifyPackage(const std::string &file, bool ignoreHalyxFilter) {
  PackageReport report;
  report.file = file;
  report.ignoreHalyxFilter = ignoreHalyxFilter;
  const RegularFile opened = OpenRegularFile(file);
  const bool isEmpty = opened.fd && opened.info.st_size == 0;
  if (!opened.fd || isEmpty) {
    report.verdict = {Status::kUnreadable,
                      {isEmpty ? "archive.empty" : "unreadable",
                       isEmpty ? "empty file" : opened.obstacle, "", ""}};
    return report;
  }
  const Fd &fd = *opened.fd;
  const struct stat &info = opened.info;

  const PackageReport blank = report;
  Examine(fd.GetFd(), report);
  if (!IsAsBefore(fd.GetFd(), info)) {
    report = blank;
    report.verdict = {Status::kUndecided,
                      {"changed", "it changed while it was read",
                       "verify it when nobody writes to it", ""}};
  }
  return report;
}

PackageReport ReportOfEnd(const std::string &file, bool ignoreHalyxFilter,
                          const ChildResult &result,
                          const ChildLimits &limits) {
  PackageReport report;
  report.file = file;
  report.ignoreHalyxFilter = ignoreHalyxFilter;
  report.verdict = {Status::kUndecided, WhyNoReport(result, limits)};
  return report;
}

std::string ToText(const PackageReport &report) {
  const Status status = report.verdict.status;
  const FileReason &reason = report.verdict.reason;
  std::string text = FileText(report.file);
  const std::string why = reason.code + ": " + reason.message +
                          (reason.hint.empty() ? "" : ". Next: " + reason.hint);
  if (!HasVerdict(report))
    return text + ": " + why;

  text += status == Status::kVerified  ? ": verified"
          : status == Status::kRefused ? ": refused"
                                       : ": not verified";
  // A package without a signature that counts was tried by v1 in the end; that
  // says nothing.
  const bool isOfScheme = status == Status::kVerified || reason.code[0] == 'v';
  if (isOfScheme && report.scheme != ApkSignatureScheme::kNone) {
    text += fmt::format(", v{}", static_cast<int>(report.scheme));
  }
  if (report.isApk) {
    text += ", " + (report.packageName.empty() ? "package name unknown"
                                               : NameText(report.packageName));
  }
  if (status != Status::kVerified)
    return text + ", " + why;
  return text + fmt::format(", key sha256:{} ({} bytes)", KeySha256(report),
                            report.manufacturerKey.size());
}

std::string ToJson(const PackageReport &report) {
  Json log = Json::array();
  for (const LogLine &line : report.log) {
    log.push_back(
        {std::string(1, line.priority), EscapeInvalidUtf8(line.text)});
  }
  const Verdict &verdict = report.verdict;
  Json others = Json::array();
  for (const FileReason &reason : verdict.others)
    others.push_back(ToJson(reason));
  Json object = {
      {"schemaVersion", 2},
      {"file", EscapeInvalidUtf8(report.file)},
      {"status", NameOf(verdict.status)},
      {"reason",
       verdict.status == Status::kVerified ? Json() : ToJson(verdict.reason)},
      {"also", others},
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
  };
  if (!report.manufacturerKey.empty())
    object["manufacturerKeySha256"] = KeySha256(report);
  if (!HasVerdict(report))
    object["error"] = EscapeInvalidUtf8(verdict.reason.message);
  return object.dump(/*indent=*/-1, /*indent_char=*/' ', /*ensure_ascii=*/true);
}

} // namespace Quill::Tool
