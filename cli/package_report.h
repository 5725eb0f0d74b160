// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <quillon/apk.h>

#include "anatomy/package.h"
#include "cli/child.h"
#include "cli/expected_signer.h"
#include "cli/log_recorder.h"
#include "cli/signer_report.h"
#include "cli/verdict.h"
#include "cli/warnings.h"
#include "findings/recorder.h"

namespace Quill::Tool {

// What the user demands of a package beyond the platform's own rules.
struct VerifyRules {
  bool ignoreHalyxFilter = true;
  std::optional<SdkRange> sdk;           // none: the level of QUILLON_SDK
  bool asksForSigner = false;            // so what shows the signer must cover every entry
  std::vector<ExpectedSigner> expected;  // empty: anybody
  std::optional<Sibling> sibling;        // of the same set
  bool allowsJar = false;                // a JAR signature may show the signer
  std::string packageName;               // empty: any
  int minScheme = 0;
  bool isStrict = false;             // any warning refuses the package
  std::vector<std::string> refused;  // so do those with these codes
  bool locatesFields = false;        // find the field of the file that a refusal is about
};

// The verdict for some SDK levels.
struct LevelReport {
  SdkRange levels;
  Verdict verdict;
  std::string identitySha256;  // empty unless verified, as are the signers
  std::vector<SignerReport> signers;
};

// One file, as the library found it. Without a verdict little more than `file` and the reason is
// known, and isGoodApk, scheme and manufacturerKey are empty; isGoodZip is then true only of a file
// that could not be mapped.
struct PackageReport {
  std::string file;              // as named on the command line
  std::optional<uint64_t> size;  // in bytes; none: it was not opened, or the attempt was given up
  bool isGoodZip = false;
  bool isApk = false;
  bool isGoodApk = false;
  ApkSignatureScheme scheme = ApkSignatureScheme::kNone;
  std::string packageName;
  ManifestFacts manifest;
  bool halyxPermissionRequired = false;
  bool ignoreHalyxFilter = false;
  std::vector<uint8_t> manufacturerKey;
  std::vector<SignerReport> signers;  // empty unless the library verified it
  std::vector<FileWarning> warnings;  // the same
  std::vector<LogLine> log;
  Verdict verdict;
  std::vector<LevelReport> levels;  // of a package that was judged for several
  std::vector<Refusal> refusals;    // all that the library refused
};

// False of a file that could not be read or mapped, that is no ZIP archive, that changed meanwhile,
// or whose child ended without a report.
inline bool HasVerdict(const PackageReport& report) {
  return ExitOf(report.verdict.status) != kUnreadable;
}

// Verifies the package at that path. Only regular files are read; a pipe is not waited for. A file
// that changes meanwhile has no verdict but that. One that shrinks ends the process, so this is for
// a child. It is judged for each signer that it has for the levels of `rules.sdk`; if the rules ask
// for a signer and name no level, for each that it has. The worst verdict is that of the report.
PackageReport VerifyPackage(const std::string& file, const VerifyRules& rules);

// Finds the fields of the file that the reasons are about, where they are about one.
void LocateFields(const Anatomy::Package& package, PackageReport& report);

// Returns the report of a file whose child ended without one.
PackageReport ReportOfEnd(const std::string& file, const VerifyRules& rules,
                          const ChildResult& result, const ChildLimits& limits);

// One line for people, without a line break, not escaped for a terminal.
std::string ToText(const PackageReport& report);

// The same facts as one JSON object on one line of ASCII. Bytes of a text that are not UTF-8 stand
// in it as the four characters \xNN.
std::string ToJson(const PackageReport& report);

}  // namespace Quill::Tool
