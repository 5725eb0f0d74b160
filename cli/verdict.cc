// SPDX-License-Identifier: Apache-2.0

#include "cli/verdict.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "util/text.h"

namespace Quill::Tool {
namespace {

constexpr std::string_view kNoArchive = "OpenArchiveFd(";
constexpr std::string_view kSigningBlockStart = "Use APK ";
constexpr std::string_view kJarStart = "Fallback to APK V1 signature. APK: ";
constexpr std::string_view kNotMapped = "Can't map file: ";
constexpr std::string_view kChosenAlgorithm = "Found the best signature algorithm ID: ";

// How verification ended: the outermost step that failed logs the last line.
struct Ending {
  std::string_view lastLine;  // its start
  ExitStatus status;
  const char* words;
};
constexpr Ending kEndings[] = {
    {kNoArchive, kUnreadable, "no usable ZIP archive"},
    {"Can't extract Android Manifest: Entry not found", kUnverified,
     "a plain ZIP or JAR, no package"},
    {"Can't extract Android Manifest: ", kFailed, "AndroidManifest.xml is damaged"},
    {"HALYX permissions are absent.", kUnverified, "outside the Halyx feature"},
    {"Can't load manifest: ", kFailed, "META-INF/MANIFEST.MF is malformed"},
    {"Can't process Android Manifest.", kFailed, "AndroidManifest.xml is malformed"},
    {"Can't verify signature APK ", kFailed, "APK signing block did not verify"},
    {"Can't obtain public key APK ", kFailed, "APK signing block has no key"},
    {kJarStart, kFailed, "neither a usable APK signing block nor a signature file"},
    {"Can't extract manifest: ", kFailed, "neither a usable APK signing block nor a manifest"},
    {"Parse manifest: ", kFailed, "signature file is malformed"},
    {"This APK was supposed to be signed ", kFailed,
     "signature file names an APK signing block that is missing"},
    {"file not verified: ", kFailed, "signature file does not match its signature block"},
    {"Can't validate manifest.", kFailed, "manifest does not match the signature file"},
    {"Integrity not confirmed: classes.dex", kFailed, "classes.dex does not match the manifest"},
};
// Only the PKCS #7 block of a v1 signature has many different last lines.
constexpr Ending kOtherEnding = {"", kFailed, "signature block did not verify"};

// Returns the first line that the failed scheme logged after its start, which is the most exact
// one; empty when there is none.
std::string_view FirstComplaint(const std::vector<LogLine>& log) {
  std::string_view complaint;
  for (const LogLine& line : log) {
    if (StartsWith(line.text, kSigningBlockStart) || StartsWith(line.text, kJarStart)) {
      complaint = {};
    } else if (complaint.empty() && !StartsWith(line.text, kChosenAlgorithm)) {
      complaint = line.text;
    }
  }
  // From the line about the archive keep only the cause.
  if (StartsWith(complaint, kNoArchive)) complaint.remove_prefix(complaint.rfind(": ") + 2);
  return complaint;
}

}  // namespace

Verdict Judge(bool isGoodApk, const std::vector<LogLine>& log) {
  if (std::any_of(log.begin(), log.end(),
                  [](const LogLine& line) { return StartsWith(line.text, kNotMapped); })) {
    return {kUnreadable, "memory-limit: it could not be mapped"};
  }
  if (isGoodApk) return {};
  const std::string_view lastLine = log.empty() ? std::string_view() : log.back().text;
  const Ending* ending =
      std::find_if(std::begin(kEndings), std::end(kEndings),
                   [lastLine](const Ending& e) { return StartsWith(lastLine, e.lastLine); });
  if (ending == std::end(kEndings)) ending = &kOtherEnding;

  const std::string_view complaint = FirstComplaint(log);
  if (complaint.empty()) return {ending->status, ending->words};
  return {ending->status, fmt::format("{} ({})", ending->words, complaint)};
}

}  // namespace Quill::Tool
