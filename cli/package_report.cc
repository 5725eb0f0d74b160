// SPDX-License-Identifier: Apache-2.0

#include "cli/package_report.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>

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

// True when the file still has the size and the time of last change that it had then.
bool IsAsBefore(int fd, const struct stat& before) {
  struct stat now;
  return fstat(fd, &now) == 0 && now.st_size == before.st_size &&
         now.st_ctim.tv_sec == before.st_ctim.tv_sec &&
         now.st_ctim.tv_nsec == before.st_ctim.tv_nsec;
}

bool StartsWithZipEntry(int fd) {
  char start[4];
  return pread(fd, start, sizeof start, 0) == sizeof start &&
         std::memcmp(start, "PK\3\4", sizeof start) == 0;
}

// Fills in what the library found, and a verdict on it.
void Describe(Apk& apk, int fd, const LogRecorder& log, PackageReport& report) {
  const bool isGoodApk = apk.IsGoodApk();
  report.verdict = Judge(isGoodApk, log.Lines());
  report.isGoodZip = apk.IsGoodZip();
  report.isApk = apk.IsApk();
  report.packageName = apk.GetPackageName();
  report.halyxPermissionRequired = apk.IsHalyxPermissionRequired();
  report.ignoreHalyxFilter = apk.ForcedIgnoreHalyxFilter();
  if (!report.isGoodZip) {
    if (StartsWithZipEntry(fd)) {
      report.verdict.reason = "truncated or damaged, " + report.verdict.reason;
    }
    return;
  }
  if (report.verdict.status == kUnreadable) return;
  report.manufacturerKey = apk.GetManufacturerKey();
  report.scheme = apk.GetApkSignatureSchemeVersion();
  report.isGoodApk = isGoodApk;
  if (!report.isApk && report.verdict.status == kUnverified && WasPackage(apk, fd)) {
    report.verdict = {kFailed, "damaged, its AndroidManifest.xml is missing"};
  }
}

void Examine(int fd, PackageReport& report) {
  const LogRecorder log;
  const FindingRecorder findings;
  Apk apk(fd, report.ignoreHalyxFilter);
  Describe(apk, fd, log, report);
  if (report.verdict.status == kUnverified && findings.Has(Finding::kManifestOverBudget)) {
    report.verdict = {kUnreadable, "manifest.over-budget: its manifest costs too much to read"};
  }
  report.log = log.Lines();
}

std::string WhyNoReport(const ChildResult& result, const ChildLimits& limits) {
  switch (result.end) {
    case ChildEnd::kTimeLimit:
      return fmt::format("time-limit: takes more than {} s of processor time", limits.seconds);
    case ChildEnd::kMemoryLimit:
      return fmt::format("memory-limit: needs more than {} MiB of memory, or more than there is",
                         limits.mebibytes);
    case ChildEnd::kFileLost:
      return "changed: it became shorter while it was read, or a part of it cannot be read";
    case ChildEnd::kNotStarted:
      return "no-process: the system has no process left to read it";
    case ChildEnd::kReported:
    case ChildEnd::kCrashed:
      break;
  }
  if (result.signal == 0) return "crashed: the process that read it ended too early";
  return fmt::format("crashed: the process that read it died of signal {} ({})", result.signal,
                     strsignal(result.signal));
}

std::string KeySha256(const PackageReport& report) {
  const std::vector<uint8_t> digest = ComputeSHA256Digest(report.manufacturerKey);
  return ToHex(digest.data(), digest.size());
}

}  // namespace

PackageReport VerifyPackage(const std::string& file, bool ignoreHalyxFilter) {
  PackageReport report;
  report.file = file;
  report.ignoreHalyxFilter = ignoreHalyxFilter;
  const RegularFile opened = OpenRegularFile(file);
  const bool isEmpty = opened.fd && opened.info.st_size == 0;
  if (!opened.fd || isEmpty) {
    report.verdict = {kUnreadable, isEmpty ? "empty file" : opened.obstacle};
    return report;
  }
  const Fd& fd = *opened.fd;
  const struct stat& info = opened.info;

  const PackageReport blank = report;
  Examine(fd.GetFd(), report);
  if (!IsAsBefore(fd.GetFd(), info)) {
    report = blank;
    report.verdict = {kUnreadable, "changed: it changed while it was read"};
  }
  return report;
}

PackageReport ReportOfEnd(const std::string& file, const ChildResult& result,
                          const ChildLimits& limits) {
  PackageReport report;
  report.file = file;
  report.verdict = {kUnreadable, WhyNoReport(result, limits)};
  return report;
}

std::string ToText(const PackageReport& report) {
  const ExitStatus status = report.verdict.status;
  std::string text = FileText(report.file);
  if (!HasVerdict(report)) return text + ": " + report.verdict.reason;

  text += status == kDone ? ": verified" : status == kFailed ? ": refused" : ": not verified";
  if (report.scheme != ApkSignatureScheme::kNone) {
    text += fmt::format(", v{}", static_cast<int>(report.scheme));
  }
  if (report.isApk) {
    text +=
        ", " + (report.packageName.empty() ? "package name unknown" : NameText(report.packageName));
  }
  if (status != kDone) return text + ", " + report.verdict.reason;
  return text + fmt::format(", key sha256:{} ({} bytes)", KeySha256(report),
                            report.manufacturerKey.size());
}

std::string ToJson(const PackageReport& report) {
  using Json = nlohmann::ordered_json;
  Json log = Json::array();
  for (const LogLine& line : report.log) {
    log.push_back({std::string(1, line.priority), EscapeInvalidUtf8(line.text)});
  }
  Json object = {
      {"schemaVersion", 1},
      {"file", EscapeInvalidUtf8(report.file)},
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
  if (!report.manufacturerKey.empty()) object["manufacturerKeySha256"] = KeySha256(report);
  if (!HasVerdict(report)) object["error"] = EscapeInvalidUtf8(report.verdict.reason);
  return object.dump(/*indent=*/-1, /*indent_char=*/' ', /*ensure_ascii=*/true);
}

}  // namespace Quill::Tool
