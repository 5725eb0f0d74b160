// SPDX-License-Identifier: Apache-2.0

#include "cli/rules.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <ziparchive/zip_archive.h>

#include <algorithm>

#include "cli/output.h"
#include "cli/package_evidence.h"
#include "cli/sdk_level.h"
#include "jar/entry_digest.h"

namespace Quill::Tool {
namespace {

std::string SignersText(const std::vector<SignerReport>& signers) {
  std::vector<KeyChain> chains;
  chains.reserve(signers.size());
  for (const SignerReport& signer : signers) chains.push_back(ChainOf(signer));
  return TextOf(chains);
}

std::string ExpectedText(const std::vector<ExpectedSigner>& expected) {
  std::vector<std::string> texts;
  texts.reserve(expected.size());
  for (const ExpectedSigner& signer : expected) texts.push_back(signer.text);
  return fmt::format("{}", fmt::join(texts, " or "));
}

// Each of these returns why the package is refused, or a reason without a code.

FileReason CheckFacts(const VerifyRules& rules, const PackageReport& report) {
  const int scheme = static_cast<int>(report.scheme);
  if (scheme < rules.minScheme) {
    return {"scheme.too-low",
            fmt::format("verified by v{}, and at least v{} is asked for", scheme, rules.minScheme),
            "sign it with the newer scheme, too", ""};
  }
  if (!rules.packageName.empty() && report.packageName != rules.packageName) {
    return {"package.unexpected", "expected was the package " + NameText(rules.packageName),
            kAskWho, ""};
  }
  return {};
}

// Returns the entries that the JAR manifest lists and the archive library cannot find. The manifest
// itself stands for those of one that cannot be read.
std::vector<std::string> LostEntries(Apk& apk) {
  std::string text;
  ManifestMf manifest;
  if (apk.ExtractByName(Apk::kMANIFEST_MF, text) != 0 || !manifest.load(std::move(text))) {
    return {Apk::kMANIFEST_MF};
  }
  std::vector<std::string> names;
  for (const auto& [name, digest] : CollectEntryDigests(manifest)) {
    ZipEntry entry;
    if (apk.FindEntry(name, &entry) != 0) names.push_back(name);
  }
  return names;
}

// Checks that a JAR signature covers every entry, and that none was added or taken away.
FileReason CheckEntries(Apk& apk, const Findings& findings) {
  const bool isCovered = ForEachEntry(apk, [&](const std::string& name, ZipEntry& entry) {
    return IsSignatureRelated(name) || apk.VerifyFileHash(name, &entry);
  });
  const std::vector<std::string> lost = LostEntries(apk);
  if (!isCovered) {
    // The iteration stops at a damaged entry without its name. This notes a refusal with it.
    for (const std::string& name : lost) static_cast<void>(apk.VerifyFileHash(name));
    return WhyEntryRefused(findings.refusals);
  }
  if (!lost.empty()) {
    return {"v1.entry-missing",
            "META-INF/MANIFEST.MF lists " + NameText(lost.front()) + ", which is missing",
            "it was changed after signing: get it again from its source, or sign it again",
            lost.front()};
  }
  return {};
}

// A signer is shown by what covers every entry.
FileReason CheckCover(Apk& apk, const Findings& findings, const DirectoryFacts& directory,
                      const VerifyRules& rules, PackageReport& report) {
  const bool isJar = report.scheme == ApkSignatureScheme::kJar;
  if (isJar) {
    if (!rules.allowsJar) {
      return {"signer.only-v1", "a JAR signature covers too little to show who made a package",
              "sign it with v2 or v3, or see --allow-v1", ""};
    }
    FileReason reason = CheckEntries(apk, findings);
    if (!reason.code.empty()) return reason;
    report.warnings =
        FindWarnings(apk, findings, report.signers, directory, /*areEntriesChecked=*/true);
  }
  for (const FileWarning& warning : report.warnings) {
    // A block signature covers the whole directory, a JAR signature no more than entries.
    if (warning.code == "block.entries-inside" ||
        (isJar && warning.code == "archive.two-directories")) {
      return {warning.code, warning.message, warning.hint, ""};
    }
  }
  return {};
}

FileReason CheckSigners(const PackageReport& report, SdkRange levels, const VerifyRules& rules) {
  const SignerMatch match = Match(report.signers, levels, rules.expected);
  if (match == SignerMatch::kExpected) return {};
  const std::string who = fmt::format("signed by {}, expected was {}", SignersText(report.signers),
                                      ExpectedText(rules.expected));
  if (match == SignerMatch::kRolledBack) {
    return {"signer.rolled-back", who + ", which has a newer key",
            "ask for a package that is signed with the newer key", ""};
  }
  const std::string identity = Sha256Of(report.manufacturerKey);
  const bool isIdentity =
      std::any_of(rules.expected.begin(), rules.expected.end(),
                  [&](const ExpectedSigner& signer) { return signer.sha256 == identity; });
  if (isIdentity) {
    return {"signer.unexpected", who, "name the certificate: the identity of a key is not enough",
            ""};
  }
  return {"signer.unexpected", who, kAskWho, ""};
}

FileReason CheckSet(const PackageReport& report, SdkRange levels, const Sibling& sibling) {
  const std::string first = FileText(sibling.file);
  if (sibling.chains.empty() && report.file == sibling.file) {
    return {"set.no-first", "it was not verified when it was read as the first of the set",
            "verify it again", ""};
  }
  if (sibling.chains.empty()) {
    return {"set.no-first", first + " is not verified, so there is nothing to compare with",
            "see what is wrong with that file", ""};
  }
  if (!HaveSameSigners(report.signers, levels, sibling.chains)) {
    return {"set.signer-differs",
            fmt::format("signed by {}, which is not the signer of {}", SignersText(report.signers),
                        first),
            kAskWho, ""};
  }
  if (report.packageName != sibling.packageName) {
    return {"set.package-differs",
            fmt::format("{} is the package {}", first, NameText(sibling.packageName)),
            "name only files of one package", ""};
  }
  if (report.manifest.versionCode != sibling.versionCode) {
    return {"set.version-differs", fmt::format("{} has another version code", first),
            "name only files of one version", ""};
  }
  return {};
}

FileReason CheckWarnings(const VerifyRules& rules, const PackageReport& report) {
  for (const FileWarning& warning : report.warnings) {
    const bool isRefused =
        std::find(rules.refused.begin(), rules.refused.end(), warning.code) != rules.refused.end();
    if (rules.isStrict || isRefused) return {warning.code, warning.message, warning.hint, ""};
  }
  return {};
}

// The levels that the package's signers are for and the user asks about.
SdkRange LevelsOf(const PackageReport& report, const VerifyRules& rules) {
  SdkRange levels = rules.sdk.value_or(SdkRange{0, kMostSdkLevel});
  for (const SignerReport& signer : report.signers) {
    levels.min = std::max(levels.min, signer.minSdk);
    levels.max = std::min(levels.max, signer.maxSdk);
  }
  return levels;
}

}  // namespace

void ApplyRules(Apk& apk, const Findings& findings, const DirectoryFacts& directory,
                const VerifyRules& rules, PackageReport& report) {
  const SdkRange levels = LevelsOf(report, rules);
  FileReason reason = CheckFacts(rules, report);
  if (reason.code.empty() && rules.asksForSigner) {
    reason = CheckCover(apk, findings, directory, rules, report);
  }
  if (reason.code.empty() && !rules.expected.empty()) reason = CheckSigners(report, levels, rules);
  // Before the set: a first file with such a warning is none to compare others with.
  if (reason.code.empty()) reason = CheckWarnings(rules, report);
  if (reason.code.empty() && rules.sibling) reason = CheckSet(report, levels, *rules.sibling);
  if (!reason.code.empty()) report.verdict = {Status::kRefused, reason};
}

}  // namespace Quill::Tool
