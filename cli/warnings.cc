// SPDX-License-Identifier: Apache-2.0

#include "cli/warnings.h"

#include <fmt/format.h>
#include <ziparchive/zip_archive.h>

#include <algorithm>
#include <functional>
#include <iterator>

#include "cli/package_evidence.h"

namespace Quill::Tool {
namespace {

struct WarningText {
  Warning warning;
  const char* code;
  const char* message;  // {0} is the number, {1} the name
  const char* hint;
  bool isCount;  // the number counts entries
};

constexpr char kSignByBlock[] = "sign it with v2 or v3";
constexpr char kNewKey[] = "sign it with RSA of 2048 bits or more, or with EC";
constexpr WarningText kWarningTexts[] = {
    {Warning::kRepeatedPair, "block.repeated-pairs",
     "several pairs of the signing block have the ID {0:#x}, and the first counts", kSignAgain,
     false},
    {Warning::kFurtherSigners, "v2.further-signers",
     "the identity is the first signer's; {0} more signed it", "check that all of them may sign it",
     true},
    {Warning::kStrippedSchemeNamed, "v2.names-v3",
     "the v2 signature says that there is a v3 signature, but there is none",
     "get it again from its source: somebody may have removed a signature", false},
    {Warning::kLineageAlgorithmsDiffer, "v3.lineage-algorithms",
     "level {0} of the lineage is signed with another algorithm than it states",
     "whoever signed it must make the lineage again", false},
    {Warning::kSeveralCertificates, "v1.several-certificates",
     "the signature block has {0} certificates, and the key of the last one counts", kSignAgain,
     true},
    {Warning::kWeakDigest, "v1.weak-digest", "it was checked by {1} alone",
     "sign it with SHA-256, or with v2 or v3", false},
    {Warning::kPartlyCovered, "v1.partly-covered",
     "only classes.dex was checked; entries that were not: {0}", kSignByBlock, true},
    {Warning::kNoClassesDex, "v1.no-classes-dex",
     "there is no classes.dex, and nothing else is checked; entries: {0}", kSignByBlock, true},
    {Warning::kJarForTargetSdk, "v1.target-sdk",
     "it is for SDK level {0}, where platforms demand a v2 signature", kSignByBlock, false},
    {Warning::kSeveralFiles, "v1.several-signature-files",
     "it has {0} signature files, and the first counts", kSignAgain, true},
    {Warning::kRsaShort, "key.rsa-short", "a key is RSA with {0} bits, fewer than 2048", kNewKey,
     false},
    {Warning::kDsaKey, "key.dsa", "the identity is a DSA key", kNewKey, false},
    {Warning::kDebugCertificate, "key.debug", "it is signed with a debug certificate",
     "sign it with the key for releases", false},
    {Warning::kEntriesInBlock, "block.entries-inside",
     "entries that lie inside the signing block, where no signature covers them: {0}", kAskWho,
     true},
    {Warning::kTwoDirectories, "archive.two-directories",
     "entries of the central directory that the end record does not count: {0}", kAskWho, true},
};
static_assert(std::size(kWarningTexts) == static_cast<size_t>(Warning::kTwoDirectories) + 1);

// Adds a warning, or counts on where there is one of the same code.
void Add(std::vector<FileWarning>& out, Warning warning, uint64_t number,
         const std::string& name = "") {
  const auto& text = *std::find_if(
      std::begin(kWarningTexts), std::end(kWarningTexts),
      [warning](const WarningText& candidate) { return candidate.warning == warning; });
  const uint64_t count = text.isCount ? number : 1;
  const auto known = std::find_if(
      out.begin(), out.end(), [&](const FileWarning& other) { return other.code == text.code; });
  if (known != out.end()) {
    known->count += count;
    return;
  }
  out.push_back(
      {text.code, fmt::format(fmt::runtime(text.message), number, name), text.hint, count});
}

void WarnOfKeys(const std::vector<SignerReport>& signers, std::vector<FileWarning>& out) {
  constexpr uint32_t kLeastRsaBits = 2048;
  for (const SignerReport& signer : signers) {
    for (const KeyReport& key : signer.chain) {
      if (key.type == "RSA" && key.bits < kLeastRsaBits) Add(out, Warning::kRsaShort, key.bits);
    }
    if (signer.Oldest().type == "DSA") Add(out, Warning::kDsaKey, 0);
    if (signer.Current().isDebug) Add(out, Warning::kDebugCertificate, 0);
  }
}

void WarnOfJarSignature(Apk& apk, const Findings& findings, bool areEntriesChecked,
                        std::vector<FileWarning>& out) {
  constexpr uint32_t kLeastTargetOfBlocks = 30;
  uint64_t unchecked = 0;
  uint64_t signatureFiles = 0;
  bool hasClassesDex = false;
  static_cast<void>(ForEachEntry(apk, [&](const std::string& name, ZipEntry& /*entry*/) {
    if (name == "classes.dex") {
      hasClassesDex = true;
    } else if (!IsSignatureRelated(name)) {
      ++unchecked;
    } else if (IsSignatureFile(name)) {
      ++signatureFiles;
    }
    return true;
  }));
  if (!areEntriesChecked && !hasClassesDex) Add(out, Warning::kNoClassesDex, unchecked);
  if (!areEntriesChecked && hasClassesDex && unchecked != 0) {
    Add(out, Warning::kPartlyCovered, unchecked);
  }
  if (signatureFiles > 1) Add(out, Warning::kSeveralFiles, signatureFiles);
  const uint32_t target =
      findings.manifest.targetSdk.value_or(findings.manifest.minSdk.value_or(1));
  if (target >= kLeastTargetOfBlocks) Add(out, Warning::kJarForTargetSdk, target);
}

}  // namespace

std::vector<FileWarning> FindWarnings(Apk& apk, const Findings& findings,
                                      const std::vector<SignerReport>& signers,
                                      const DirectoryFacts& directory, bool areEntriesChecked) {
  std::vector<FileWarning> out;
  for (const WarningNote& note : findings.warnings) Add(out, note.warning, note.number, note.name);
  WarnOfKeys(signers, out);
  if (apk.GetApkSignatureSchemeVersion() == ApkSignatureScheme::kJar) {
    WarnOfJarSignature(apk, findings, areEntriesChecked, out);
  }
  if (directory.entriesInBlock != 0) Add(out, Warning::kEntriesInBlock, directory.entriesInBlock);
  if (directory.uncounted != 0) Add(out, Warning::kTwoDirectories, directory.uncounted);
  return out;
}

std::vector<std::string> WarningCodes() {
  std::vector<std::string> codes;
  for (const WarningText& text : kWarningTexts) codes.emplace_back(text.code);
  return codes;
}

}  // namespace Quill::Tool
