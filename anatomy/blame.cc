// SPDX-License-Identifier: Apache-2.0

#include "anatomy/blame.h"

#include <string_view>

#include "anatomy/coverage.h"
#include "util/text.h"

namespace Quill::Anatomy {
namespace {

std::string Index(uint64_t index) { return '[' + std::to_string(index) + ']'; }

// Returns the path of the deepest first field "unread" below a field; empty: there is none.
std::string FindUnread(const Field& field, const std::string& path) {
  for (const Field& child : field.fields) {
    std::string childPath = JoinPath(path, child.Name());
    std::string deeper = FindUnread(child, childPath);
    if (!deeper.empty()) return deeper;
    if (child.name == std::string_view("unread") && !child.Note().empty()) return childPath;
  }
  return "";
}

// Returns the path of the deepest first field with a note in a field; empty: there is none.
std::string FindNoted(const Field& field, const std::string& path) {
  for (const Field& child : field.fields) {
    std::string deeper = FindNoted(child, JoinPath(path, child.Name()));
    if (!deeper.empty()) return deeper;
  }
  return field.Note().empty() ? "" : path;
}

// The path in the signer that is refused, for reasons that are about one field of it.
std::string FieldOfSigner(const Package& package, const Field& signer, const Refusal& refusal) {
  const std::string lineage = [&]() -> std::string {
    const Field* signedData = signer.Child("signedData");
    const Field* attributes = signedData != nullptr ? signedData->Child("attributes") : nullptr;
    if (attributes == nullptr) return "";
    for (const Field& attribute : attributes->fields) {
      if (attribute.Child("lineage") != nullptr) {
        return "signedData.attributes" + attribute.Name() + ".lineage";
      }
    }
    return "signedData.attributes";
  }();
  const auto chosen = [&](const Field* sequence, const std::string& path) {
    const int32_t index = sequence == nullptr ? -1 : ChosenAlgorithm(package, *sequence);
    return index < 0 ? path : path + Index(static_cast<uint64_t>(index)) + ".value";
  };
  const Field* signedData = signer.Child("signedData");
  switch (refusal.reason) {
    case Reason::kAlgorithmUnsupported:
      return "signatures";
    case Reason::kAlgorithmsDiffer:
      return "signedData.digests";
    case Reason::kKeyUnusable:
      return "publicKey";
    case Reason::kSignatureMismatch:
      return chosen(signer.Child("signatures"), "signatures");
    case Reason::kCertificateMissing:
      return "signedData.certificates";
    case Reason::kCertificateMalformed:
    case Reason::kCertificateKeyDiffers:
      return "signedData.certificates[0].certificate";
    case Reason::kStripped:
      return "signedData.attributes";
    case Reason::kDigestMismatch:
      return chosen(signedData == nullptr ? nullptr : signedData->Child("digests"),
                    "signedData.digests");
    case Reason::kSdkRangesDiffer:
      return refusal.name;
    case Reason::kLineageMalformed: {
      const Field* field = Find(signer, lineage);
      const std::string noted = field == nullptr ? "" : FindNoted(*field, lineage);
      return noted.empty() ? lineage : noted;
    }
    case Reason::kLineageEnd:
    case Reason::kLineageCertificate:
    case Reason::kLineageDuplicate:
      return lineage + Index(refusal.number - 1) + ".signedData.certificate";
    case Reason::kLineageAlgorithm:  // named in the level before
    case Reason::kLineageKey:
      return lineage + Index(refusal.number - 2) + ".algorithm";
    case Reason::kLineageSignature:
      return lineage + Index(refusal.number - 1) + ".signature.value";
    default:
      return "";
  }
}

std::string EntryPath(const Package& package, const std::string& name) {
  const Field* entry = FindEntryOf(package, name);
  return entry == nullptr ? "" : JoinPath(entry->Name(), "data");
}

// The path in what an entry holds; empty: all of it.
std::string PathInside(const Decoded& decoded, const Refusal& refusal) {
  const Field& root = decoded.root;
  const std::string signedData = "contentInfo.content.signedData";
  const std::string signer = signedData + ".signerInfos[0]";
  switch (refusal.reason) {
    case Reason::kJarManifestMalformed:
    case Reason::kJarSignatureFileMalformed:
    case Reason::kJarBlockMalformed:
      return FindUnread(root, "");
    case Reason::kJarClaimsScheme:
      for (const Field& section : root.fields) {
        for (const Field& attribute : section.fields) {
          if (StartsWith(ValueText(attribute, ByteCursor(decoded.bytes)), "X-Android-APK-Signed")) {
            return JoinPath(section.Name(), attribute.Name());
          }
        }
      }
      return "";
    case Reason::kJarSignedAttributes:
      return signer + ".signedAttributes";
    case Reason::kJarBlockDigestUnsupported:
      return signer + ".digestAlgorithm";
    case Reason::kJarKeyUnusable: {
      const std::string path = signedData + ".certificates";
      const Field* certificates = Find(root, path);
      const bool isRead = certificates != nullptr && !certificates->fields.empty() &&
                          certificates->fields.back().shape == Shape::kCertificate;
      return isRead ? path + certificates->fields.back().Name() : path;
    }
    case Reason::kJarSignatureMismatch:
      return signer + ".signature";
    default:
      return "";
  }
}

// Leads from an entry into what it holds, where that is known.
std::string LeadInside(const Package& package, const Refusal& refusal, const std::string& path) {
  const Field* data = path.empty() ? nullptr : Find(package.file, path);
  const Decoded* decoded = data == nullptr ? nullptr : data->DecodedBytes();
  if (decoded == nullptr) return path;
  const std::string inside = PathInside(*decoded, refusal);
  const bool isThere = !inside.empty() && Find(decoded->root, inside) != nullptr;
  const std::string root = JoinPath(path, "decoded");
  return isThere ? JoinPath(root, inside) : root;
}

// Where the archive library's error says that an archive is damaged.
std::string PathOfDamage(const Package& package, const Refusal& refusal) {
  if (refusal.name == "Invalid offset") return "endRecord";  // of the central directory
  const Field* directory = package.file.Child("centralDirectory");
  return refusal.name != "Invalid file" || directory == nullptr
             ? ""
             : FindUnread(*directory, directory->Name());
}

std::string PathOf(const Package& package, const Refusal& refusal) {
  switch (refusal.reason) {
    case Reason::kManifestUnreadable:
    case Reason::kManifestMalformed:
    case Reason::kManifestOverBudget: {
      const Field* entry = FindEntryOf(package, "AndroidManifest.xml");
      return entry == nullptr ? "" : entry->Name();
    }
    case Reason::kJarNoManifest:
      return EntryPath(package, "META-INF/MANIFEST.MF");
    case Reason::kBlockTooLarge:
    case Reason::kBlockTooSmall:
    case Reason::kBlockSizesDiffer:
      return "signingBlock.footerSize";
    case Reason::kArchiveTruncated:
      return refusal.number == 0 ? "" : "endRecord";
    case Reason::kArchiveTrailing:
      return "trailing";
    case Reason::kArchiveDamaged:
      return PathOfDamage(package, refusal);
    case Reason::kBlockMagic:
      return "signingBlock.magic";
    case Reason::kBlockEndRecord:
      return "endRecord";
    case Reason::kBlockPairs:
      return "signingBlock.unread";
    case Reason::kBlockNoScheme:
      return "signingBlock";
    case Reason::kJarNoBlock:
      return EntryPath(package, package.signatureFile);
    case Reason::kJarEcKey:
      return EntryPath(package, refusal.name + "EC");
    case Reason::kJarManifestMalformed:
    case Reason::kJarManifestMismatch:
    case Reason::kJarSignatureFileMalformed:
    case Reason::kJarClaimsScheme:
    case Reason::kJarBlockMalformed:
    case Reason::kJarSignedAttributes:
    case Reason::kJarBlockDigestUnsupported:
    case Reason::kJarKeyUnusable:
    case Reason::kJarSignatureMismatch:
      return LeadInside(package, refusal, EntryPath(package, BlamedEntry(package, refusal)));
    case Reason::kJarEntryUnreadable:
    case Reason::kJarEntryUnlisted:
    case Reason::kJarEntryMismatch:
    case Reason::kJarEntryDiffers:
      return EntryPath(package, refusal.name);
    default:
      break;
  }
  const Field* pair = Find(package.file, package.chosenPair);
  if (package.chosenPair.empty() || pair == nullptr) return "";
  std::string signers = package.chosenPair + ".signers";
  switch (refusal.reason) {
    case Reason::kNoSigner:
    case Reason::kNoSignerForSdk:
    case Reason::kSeveralSigners:
      return signers;
    case Reason::kMalformed:
    case Reason::kLineageMalformed: {
      std::string unread = FindUnread(*pair, package.chosenPair);
      if (!unread.empty()) return unread;
      if (refusal.name.empty()) break;
      std::string named = signers + Index(refusal.signer.value_or(0)) + '.' + refusal.name;
      if (Find(package.file, named) != nullptr) return named;
      break;
    }
    default:
      break;
  }
  if (!refusal.signer) return "";
  const std::string path = signers + Index(*refusal.signer);
  const Field* signer = Find(package.file, path);
  if (signer == nullptr) return "";
  const std::string inSigner = FieldOfSigner(package, *signer, refusal);
  return inSigner.empty() ? path : JoinPath(path, inSigner);
}

}  // namespace

std::string BlamedEntry(const Package& package, const Refusal& refusal) {
  switch (refusal.reason) {
    case Reason::kManifestMalformed:
      return "AndroidManifest.xml";
    case Reason::kJarManifestMalformed:
    case Reason::kJarManifestMismatch:
      return "META-INF/MANIFEST.MF";
    case Reason::kJarSignatureFileMalformed:
    case Reason::kJarClaimsScheme:
      return package.signatureFile;
    case Reason::kJarBlockMalformed:
    case Reason::kJarSignedAttributes:
    case Reason::kJarBlockDigestUnsupported:
    case Reason::kJarKeyUnusable:
    case Reason::kJarSignatureMismatch:
      return package.signatureBlock;
    default:
      return "";
  }
}

std::string BlamedField(const Package& package, const Refusal& refusal) {
  std::string path = PathOf(package, refusal);
  return path.empty() || Find(package.file, path) == nullptr ? "" : path;
}

}  // namespace Quill::Anatomy
