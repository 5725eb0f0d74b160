// SPDX-License-Identifier: Apache-2.0

#include "cli/verdict.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/archive_error.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

// The part of verification that a refusal belongs to. The code of a scheme's reason starts with the
// scheme, such as "v3.".
enum class Way { kArchive, kBlock, kScheme, kJar };

struct ReasonText {
  Reason reason;
  Way way;
  const char* code;
  const char* message;  // {0} is the number, {1} the name, {2} the second number
  const char* hint;
};

constexpr char kGetAgain[] = "get it again from its source";
constexpr char kAskSigner[] = "whoever signed it must sign it again";
constexpr ReasonText kTexts[] = {
    {Reason::kArchiveTruncated, Way::kArchive, "archive.truncated",
     "a ZIP archive whose end is missing", kGetAgain},
    {Reason::kArchiveTrailing, Way::kArchive, "archive.trailing-bytes",
     "the file has {2} bytes, but the archive in it ends after {0}", kGetAgain},
    {Reason::kArchiveDamaged, Way::kArchive, "archive.damaged",
     "a ZIP archive that cannot be read: {1}", kGetAgain},
    {Reason::kManifestUnreadable, Way::kArchive, "archive.manifest-damaged",
     "AndroidManifest.xml cannot be extracted: {1}", kGetAgain},
    {Reason::kManifestMalformed, Way::kArchive, "manifest.malformed",
     "AndroidManifest.xml is no compiled manifest",
     "get it again from its source, or build it with aapt2"},
    {Reason::kJarManifestMalformed, Way::kArchive, "manifest.jar-malformed",
     "META-INF/MANIFEST.MF is malformed", kSignAgain},
    {Reason::kOutsideHalyx, Way::kArchive, "outside-halyx", "it is outside the Halyx feature", ""},

    {Reason::kBlockMagic, Way::kBlock, "block.magic", "the magic of the signing block is damaged",
     kSignAgain},
    {Reason::kBlockTooLarge, Way::kBlock, "block.size",
     "the size of the signing block is {0}, and at most {2} fits in front of the central directory",
     kSignAgain},
    {Reason::kBlockTooSmall, Way::kBlock, "block.size",
     "the signing block is smaller than its footer", kSignAgain},
    {Reason::kBlockSizesDiffer, Way::kBlock, "block.size",
     "the two sizes of the signing block differ ({0} at its start and {2} in its footer)",
     kSignAgain},
    {Reason::kBlockEndRecord, Way::kBlock, "block.end-record",
     "end record, central directory and end of file do not agree, so the signing block is "
     "ignored",
     "it was changed after signing: get it again from its source, or sign it again"},
    {Reason::kBlockPairs, Way::kBlock, "block.pairs",
     "the ID-value pairs run past the signing block", kSignAgain},
    {Reason::kBlockNoScheme, Way::kBlock, "block.no-scheme",
     "the signing block has no v2 and no v3 signature",
     "get it again from its source, or sign it with v2 or v3"},

    {Reason::kMalformed, Way::kScheme, "malformed", "the field {1} is malformed", kSignAgain},
    {Reason::kNoSigner, Way::kScheme, "no-signer", "the signature has no signer", kSignAgain},
    {Reason::kAlgorithmUnsupported, Way::kScheme, "algorithm-unsupported",
     "no signature has a supported algorithm (the first is {0:#x})", kAskSigner},
    {Reason::kKeyUnusable, Way::kScheme, "key-unusable",
     "the signer's public key is missing, or not of the kind that the algorithm needs", kAskSigner},
    {Reason::kSignatureMismatch, Way::kScheme, "signature-mismatch",
     "the signature (algorithm {0:#x}) does not match the signed data",
     "get it again from its source: the signing block was changed"},
    {Reason::kCertificateMissing, Way::kScheme, "certificate-missing",
     "the signer has no certificate", kAskSigner},
    {Reason::kCertificateMalformed, Way::kScheme, "certificate-malformed",
     "the signer's certificate cannot be read", kAskSigner},
    {Reason::kCertificateKeyDiffers, Way::kScheme, "certificate-key-differs",
     "the signer's certificate holds another key than the signer", kAskSigner},
    {Reason::kStripped, Way::kScheme, "stripped",
     "the signature says that the package also has a stronger one, but there is none",
     "get it again from its source: somebody may have removed a signature"},
    {Reason::kAlgorithmsDiffer, Way::kScheme, "algorithms-differ",
     "signatures and digests list different algorithms", kAskSigner},
    {Reason::kDigestMismatch, Way::kScheme, "digest-mismatch", "the content is not what was signed",
     "it was changed after signing: get it again from its source, or sign it again"},
    {Reason::kSdkRangesDiffer, Way::kScheme, "sdk-ranges-differ",
     "a signer's {1} is {0}, but it signed {2}", kAskSigner},
    {Reason::kSdkUnknown, Way::kScheme, "sdk-unknown", "the platform does not say its SDK level",
     "verify with --sdk"},
    {Reason::kNoSignerForSdk, Way::kScheme, "no-signer-for-sdk",
     "no signer is for SDK level {0}, only for {1}", "to check it for another platform, use --sdk"},
    {Reason::kSeveralSigners, Way::kScheme, "several-signers",
     "{0} signers apply to this SDK level, and only one may", kAskSigner},
    {Reason::kLineageMalformed, Way::kScheme, "lineage-malformed", "the lineage does not parse",
     kAskSigner},
    {Reason::kLineageEnd, Way::kScheme, "lineage-end",
     "the lineage ends with another certificate than the signer's", kAskSigner},
    {Reason::kLineageCertificate, Way::kScheme, "lineage-certificate",
     "the certificate of level {0} of the lineage cannot be read", kAskSigner},
    {Reason::kLineageAlgorithm, Way::kScheme, "lineage-algorithm",
     "the algorithm for level {0} of the lineage is not supported", kAskSigner},
    {Reason::kLineageKey, Way::kScheme, "lineage-key",
     "the key before level {0} of the lineage is not of the kind that the algorithm needs",
     kAskSigner},
    {Reason::kLineageSignature, Way::kScheme, "lineage-signature",
     "level {0} of the lineage is not signed by the key before it", kAskSigner},
    {Reason::kLineageDuplicate, Way::kScheme, "lineage-duplicate",
     "level {0} of the lineage repeats a certificate", kAskSigner},

    {Reason::kJarNoManifest, Way::kJar, "v1.no-manifest",
     "META-INF/MANIFEST.MF cannot be read: {1}", kSignAgain},
    {Reason::kJarNoSignatureFile, Way::kJar, "v1.no-signature-file",
     "META-INF/ has a signature block, but no signature file (.SF)", kSignAgain},
    {Reason::kJarSignatureFileMalformed, Way::kJar, "v1.signature-file-malformed",
     "the signature file {1} is malformed, or cannot be extracted", kSignAgain},
    {Reason::kJarClaimsScheme, Way::kJar, "v1.stripped",
     "the signature file says that there is a v{1} signature, but there is none",
     "get it again from its source; if you build it, sign it as the last step"},
    {Reason::kJarNoBlock, Way::kJar, "v1.no-block",
     "{1}RSA or {1}DSA is missing, or cannot be extracted", kSignAgain},
    {Reason::kJarEcKey, Way::kJar, "v1.ec-key",
     "{1}EC is the signature of an EC key, which is not supported in v1",
     "sign it with v2 or v3, or with an RSA key"},
    {Reason::kJarBlockMalformed, Way::kJar, "v1.block-malformed",
     "the signature block is malformed", kSignAgain},
    {Reason::kJarSignedAttributes, Way::kJar, "v1.signed-attributes",
     "the signature block has signed attributes, which are not supported",
     "sign it with apksigner"},
    {Reason::kJarBlockDigestUnsupported, Way::kJar, "v1.block-digest-unsupported",
     "the digest algorithm {1} of the signature block is not supported", "sign it with SHA-256"},
    {Reason::kJarKeyUnusable, Way::kJar, "v1.key-unusable",
     "the signature block has no certificate with a key of its kind", kAskSigner},
    {Reason::kJarSignatureMismatch, Way::kJar, "v1.signature-mismatch",
     "{1} is not what the signature block signed", kSignAgain},
    {Reason::kJarManifestMismatch, Way::kJar, "v1.manifest-mismatch",
     "META-INF/MANIFEST.MF does not match its digest in the signature file", kSignAgain},
    {Reason::kJarEntryUnreadable, Way::kJar, "v1.entry-unreadable", "{1} cannot be extracted",
     kGetAgain},
    {Reason::kJarEntryUnlisted, Way::kJar, "v1.entry-unlisted",
     "META-INF/MANIFEST.MF does not list {1}", kSignAgain},
    {Reason::kJarEntryMismatch, Way::kJar, "v1.entry-mismatch", "{1} is not what was signed",
     "it was changed after signing: get it again from its source, or sign it again"},
    {Reason::kJarDigestUnsupported, Way::kJar, "v1.digest-unsupported",
     "the digest {1} is not supported", "sign it with SHA-256"},
};

// Judge handles the first three by itself. The last is of a function that the tool does not call.
constexpr Reason kWithoutText[] = {Reason::kNoArchive, Reason::kNotMapped,
                                   Reason::kManifestOverBudget, Reason::kJarEntryDiffers};

constexpr bool EachReasonHasAText() {
  constexpr int kLast = static_cast<int>(Reason::kJarDigestUnsupported);
  for (int reason = 0; reason <= kLast; ++reason) {
    bool isFound = false;
    for (const ReasonText& text : kTexts) isFound |= static_cast<int>(text.reason) == reason;
    for (const Reason other : kWithoutText) isFound |= static_cast<int>(other) == reason;
    if (!isFound) return false;
  }
  return true;
}
static_assert(EachReasonHasAText());

const ReasonText* TextOf(Reason reason) {
  const auto found = std::find_if(std::begin(kTexts), std::end(kTexts),
                                  [&](const ReasonText& text) { return text.reason == reason; });
  return found == std::end(kTexts) ? nullptr : found;
}

// The first refusal of that way, if there is one.
const Refusal* First(const std::vector<Refusal>& refusals, Way way) {
  for (const Refusal& refusal : refusals) {
    const ReasonText* text = TextOf(refusal.reason);
    if (text != nullptr && text->way == way) return &refusal;
  }
  return nullptr;
}

FileReason Describe(const Refusal& refusal, int scheme) {
  const ReasonText& text = *TextOf(refusal.reason);
  const std::string prefix = text.way == Way::kScheme ? fmt::format("v{}.", scheme) : "";
  const bool isEntryError =
      refusal.reason == Reason::kManifestUnreadable || refusal.reason == Reason::kJarNoManifest;
  const std::string name = isEntryError ? EntryErrorText(refusal.name)
                           : refusal.reason == Reason::kArchiveDamaged
                               ? ArchiveErrorText(refusal.name)
                               : refusal.name;
  return {prefix + text.code,
          fmt::format(fmt::runtime(text.message), refusal.number, name, refusal.second),
          text.hint,
          refusal.name,
          refusal.expected,
          refusal.found,
          refusal};
}

const Refusal* Find(const std::vector<Refusal>& refusals, Reason reason) {
  const auto found = std::find_if(refusals.begin(), refusals.end(),
                                  [&](const Refusal& refusal) { return refusal.reason == reason; });
  return found == refusals.end() ? nullptr : &*found;
}

const FileReason kNoReason = {"no-reason", "the library did not say why", "report it as a bug", ""};
const Verdict kNotMapped = {Status::kUndecided,
                            {"memory-limit", "it could not be mapped", "give it more memory", ""}};

Verdict JudgeNoArchive(const Circumstances& file, const Refusal& refusal) {
  if (refusal.name == "File mapping failed") return kNotMapped;
  if (file.lookAlike.name != nullptr) {
    return {Status::kUnreadable,
            {"archive.not-a-zip", fmt::format("no ZIP archive, but {}", file.lookAlike.name),
             file.lookAlike.hint, ""}};
  }
  const auto unreadable = [&](Reason reason) {
    const Refusal found = {reason, file.archiveSize, file.fileSize, refusal.name};
    return Verdict{Status::kUnreadable, Describe(found, 0)};
  };
  if (file.archiveSize == 0 && !file.startsAsZip) {
    return {Status::kUnreadable, {"archive.not-a-zip", "no ZIP archive", kGetAgain, refusal.name}};
  }
  if (file.archiveSize == 0 || file.archiveSize > file.fileSize) {
    return unreadable(Reason::kArchiveTruncated);
  }
  if (file.archiveSize < file.fileSize) return unreadable(Reason::kArchiveTrailing);
  if (refusal.name == "Empty archive") {
    return {Status::kUnreadable,
            {"archive.empty", "a ZIP archive without entries", kGetAgain, refusal.name}};
  }
  return unreadable(Reason::kArchiveDamaged);
}

// An archive without a manifest that never was a package.
FileReason DescribeContents(ArchiveContents contents) {
  switch (contents) {
    case ArchiveContents::kBundle:
      return {"not-a-package", "an app bundle, from which packages are built",
              "build packages from it with bundletool, and verify those", ""};
    case ArchiveContents::kPackages:
      return {"not-a-package", "an archive with packages in it, no package itself",
              "unpack it, and verify the packages in it", ""};
    case ArchiveContents::kOther:
      break;
  }
  return {"not-a-package", "a plain ZIP or JAR, no package", "", ""};
}

// A package that neither has a signing block that counts nor a JAR signature that is good.
Verdict JudgeBothWays(const Circumstances& file, const std::vector<Refusal>& refusals) {
  std::vector<FileReason> reasons;
  const Refusal* block = First(refusals, Way::kBlock);
  const Refusal* jar = First(refusals, Way::kJar);
  if (file.hasBlockTrace) {
    reasons.push_back(Describe(block != nullptr ? *block : Refusal{Reason::kBlockMagic}, 0));
  }
  if (file.hasJarSignature && jar != nullptr) reasons.push_back(Describe(*jar, 1));
  // A whole block without a v2 or v3 signature is no damage.
  if (block != nullptr && block->reason == Reason::kBlockNoScheme && reasons.size() > 1) {
    std::reverse(reasons.begin(), reasons.end());
  }
  if (reasons.empty() && jar != nullptr) {
    reasons.push_back(
        {"not-signed", "it has no signing block before its central directory, and no JAR signature",
         "sign it as the last step: aligning or zipping again removes a signature", ""});
  }
  if (reasons.empty()) reasons.push_back(kNoReason);
  return {Status::kRefused, reasons.front(), {reasons.begin() + 1, reasons.end()}};
}

}  // namespace

Verdict Judge(const Circumstances& file, const std::vector<Refusal>& refusals) {
  if (const Refusal* refusal = Find(refusals, Reason::kNoArchive)) {
    return JudgeNoArchive(file, *refusal);
  }
  if (Find(refusals, Reason::kNotMapped) != nullptr) {
    return kNotMapped;
  }
  const Refusal* archive = First(refusals, Way::kArchive);
  if (archive != nullptr && archive->reason == Reason::kManifestUnreadable &&
      archive->name == "Entry not found") {
    if (!file.wasPackage) {
      return {Status::kUnverified, DescribeContents(file.contents)};
    }
    return {
        Status::kRefused,
        {"archive.manifest-missing", "damaged, its AndroidManifest.xml is missing", kGetAgain, ""}};
  }
  if (Find(refusals, Reason::kOutsideHalyx) != nullptr) {
    if (Find(refusals, Reason::kManifestOverBudget) == nullptr) {
      return {Status::kUnverified, Describe(*archive, 0)};
    }
    return {Status::kUndecided,
            {"manifest.over-budget",
             "its manifest costs too much to read, so the Halyx facts are not known",
             "verify it without --halyx-filter", ""}};
  }
  if (archive != nullptr) return {Status::kRefused, Describe(*archive, 0)};
  const Refusal* scheme = First(refusals, Way::kScheme);
  if (scheme != nullptr) return {Status::kRefused, Describe(*scheme, file.scheme)};
  if (file.scheme > 1) return {Status::kRefused, kNoReason};
  return JudgeBothWays(file, refusals);
}

FileReason WhyEntryRefused(const std::vector<Refusal>& refusals) {
  const Refusal* refusal = First(refusals, Way::kJar);
  if (refusal != nullptr) return Describe(*refusal, 1);
  return {"v1.entry-unreadable", "an entry that META-INF/MANIFEST.MF does not list cannot be found",
          kGetAgain, ""};
}

const char* NameOf(Status status) {
  switch (status) {
    case Status::kVerified:
      return "verified";
    case Status::kRefused:
      return "refused";
    case Status::kUnverified:
      return "unverified";
    case Status::kUnreadable:
      return "unreadable";
    case Status::kUndecided:
      return "undecided";
  }
  return "";
}

ExitStatus ExitOf(Status status) {
  switch (status) {
    case Status::kVerified:
      return kDone;
    case Status::kRefused:
      return kFailed;
    case Status::kUnverified:
      return kUnverified;
    case Status::kUnreadable:
    case Status::kUndecided:
      return kUnreadable;
  }
  return kFailed;
}

}  // namespace Quill::Tool
