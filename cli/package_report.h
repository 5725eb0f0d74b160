// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <quillon/apk.h>

#include "cli/child.h"
#include "cli/log_recorder.h"
#include "cli/verdict.h"

namespace Quill::Tool {

// One file, as the library found it. Without a verdict little more than `file` and the reason is
// known, and isGoodApk, scheme and manufacturerKey are empty; isGoodZip is then true only of a file
// that could not be mapped.
struct PackageReport {
  std::string file;  // as named on the command line
  bool isGoodZip = false;
  bool isApk = false;
  bool isGoodApk = false;
  ApkSignatureScheme scheme = ApkSignatureScheme::kNone;
  std::string packageName;
  bool halyxPermissionRequired = false;
  bool ignoreHalyxFilter = false;
  std::vector<uint8_t> manufacturerKey;
  std::vector<LogLine> log;
  Verdict verdict;
};

// False of a file that could not be read or mapped, that is no ZIP archive, that changed meanwhile,
// or whose child ended without a report.
inline bool HasVerdict(const PackageReport& report) {
  return ExitOf(report.verdict.status) != kUnreadable;
}

// Verifies the package at that path. Only regular files are read; a pipe is not waited for. A file
// that changes meanwhile has no verdict but that. One that shrinks ends the process, so this is for
// a child.
PackageReport VerifyPackage(const std::string& file, bool ignoreHalyxFilter);

// Returns the report of a file whose child ended without one.
PackageReport ReportOfEnd(const std::string& file, bool ignoreHalyxFilter,
                          const ChildResult& result, const ChildLimits& limits);

// One line for people, without a line break, not escaped for a terminal.
std::string ToText(const PackageReport& report);

// The same facts as one JSON object on one line of ASCII. Bytes of a text that are not UTF-8 stand
// in it as the four characters \xNN.
std::string ToJson(const PackageReport& report);

}  // namespace Quill::Tool
