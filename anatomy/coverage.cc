// SPDX-License-Identifier: Apache-2.0

#include "anatomy/coverage.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string_view>
#include <utility>

#include <quillon/system.h>

#include "anatomy/signer_tree.h"
#include "jar/entry_digest.h"
#include "schemes/algorithms.h"

namespace Quill::Anatomy {
namespace {

using Ranges = std::vector<ByteRange>;

// Sorts ranges, joins those that touch, and drops empty ones.
Ranges Normalized(Ranges ranges) {
  std::sort(ranges.begin(), ranges.end(), [](const ByteRange& left, const ByteRange& right) {
    return left.offset < right.offset;
  });
  Ranges joined;
  for (const ByteRange& range : ranges) {
    if (range.size == 0) continue;
    if (joined.empty() || joined.back().offset + joined.back().size < range.offset) {
      joined.push_back(range);
      continue;
    }
    ByteRange& last = joined.back();
    last.size = std::max(last.offset + last.size, range.offset + range.size) - last.offset;
  }
  return joined;
}

// Returns the bytes before `size` that are in none of the ranges, which are normalized.
Ranges Complement(const Ranges& ranges, uint64_t size) {
  Ranges others;
  uint64_t position = 0;
  for (const ByteRange& range : ranges) {
    others.push_back({position, range.offset - position});
    position = range.offset + range.size;
  }
  others.push_back({position, size - position});
  return Normalized(std::move(others));
}

ByteRange RangeOf(const Field& field) { return {field.offset, field.size}; }

void AddField(const Field* field, Ranges& out) {
  if (field != nullptr) out.push_back(RangeOf(*field));
}

bool Has(const std::vector<Refusal>& refusals, std::initializer_list<Reason> reasons) {
  return std::any_of(refusals.begin(), refusals.end(), [&](const Refusal& refusal) {
    return std::find(reasons.begin(), reasons.end(), refusal.reason) != reasons.end();
  });
}

// How far the verifier has come with a signer.
struct Progress {
  Checked signature = Checked::kNotLookedAt;
  Checked content = Checked::kNotLookedAt;
};

// Returns how far it came with the signer that it refused.
Progress ProgressOf(const std::vector<Refusal>& refusals) {
  if (Has(refusals, {Reason::kDigestMismatch, Reason::kAlgorithmsDiffer})) {
    return {Checked::kVerified, Checked::kFailed};
  }
  if (Has(refusals, {Reason::kCertificateMissing, Reason::kCertificateMalformed,
                     Reason::kCertificateKeyDiffers, Reason::kStripped, Reason::kLineageEnd,
                     Reason::kLineageCertificate, Reason::kLineageAlgorithm, Reason::kLineageKey,
                     Reason::kLineageSignature, Reason::kLineageDuplicate})) {
    return {Checked::kVerified, Checked::kNotLookedAt};
  }
  return {Checked::kFailed, Checked::kNotLookedAt};
}

// The ranges of one file.
class Coverer {
 public:
  Coverer(const Package& package, const Outcome& outcome) : package_(package), outcome_(outcome) {}

  std::vector<Coverage> Cover() && {
    if (const Field* block = package_.file.Child("signingBlock")) CoverBlock(*block);
    CoverJar();
    Ranges all;
    for (const Coverage& one : coverage_) {
      all.insert(all.end(), one.ranges.begin(), one.ranges.end());
    }
    // Always there, even when nothing is left over.
    coverage_.push_back({"nothing", How::kNone, Checked::kNotLookedAt,
                         Complement(Normalized(std::move(all)), package_.file.size)});
    return std::move(coverage_);
  }

 private:
  void Add(std::string by, How how, Checked checked, Ranges ranges) {
    ranges = Normalized(std::move(ranges));
    if (!ranges.empty()) coverage_.push_back({std::move(by), how, checked, std::move(ranges)});
  }

  void CoverBlock(const Field& block) {
    for (const Field& pair : block.fields) {
      if (pair.Child("signers") != nullptr) CoverPair(block, pair);
    }
  }

  void CoverPair(const Field& block, const Field& pair) {
    const std::string path = JoinPath(block.Name(), pair.Name());
    const bool isChosen = path == package_.chosenPair && outcome_.scheme > 1;
    const bool isV3 = pair.name != std::string_view("v2");
    const int32_t chosenSigner = isV3 ? ChosenSigner(package_, pair) : -1;
    const Field& signers = *pair.Child("signers");
    const bool isParsed = AreSignersRead(pair);
    Ranges structure = BlockStructure(block, pair);
    Checked structureChecked = isChosen ? Checked::kFailed : Checked::kNotLookedAt;
    for (const Field& signer : signers.fields) {
      if (signer.index < 0) {
        AddField(&signer, structure);  // a length, or "unread"
        continue;
      }
      const bool isLookedAt = isChosen && isParsed && (!isV3 || signer.index == chosenSigner);
      const Progress progress = isLookedAt ? ProgressOfSigner(signer.index) : Progress();
      if (progress.signature == Checked::kVerified) structureChecked = Checked::kVerified;
      CoverSigner(JoinPath(path, "signers" + signer.Name()), signer, block, progress);
      AddStructure(signer, isLookedAt || !isChosen, structure);
    }
    Add(path, How::kStructure, structureChecked, std::move(structure));
  }

  // What the verifier reads of the block itself, and to find it. The digest holds another number
  // in place of the directory's offset.
  Ranges BlockStructure(const Field& block, const Field& pair) const {
    Ranges ranges;
    AddField(Find(package_.file, "endRecord.centralDirectoryOffset"), ranges);
    for (const Field& field : block.fields) {
      if (field.fields.empty()) {
        AddField(&field, ranges);  // sizes and magic
      } else {
        AddField(field.Child("length"), ranges);
      }
    }
    AddField(pair.Child("id"), ranges);
    return ranges;
  }

  Progress ProgressOfSigner(int32_t index) const {
    if (outcome_.isVerified) return {Checked::kVerified, Checked::kVerified};
    if (outcome_.refusals.empty() || !outcome_.refusals.back().signer) return {};
    const auto refused = static_cast<int32_t>(*outcome_.refusals.back().signer);
    if (index < refused) return {Checked::kVerified, Checked::kVerified};
    return index == refused ? ProgressOf(outcome_.refusals) : Progress();
  }

  void CoverSigner(const std::string& path, const Field& signer, const Field& block,
                   const Progress& progress) {
    const Field* signedData = signer.Child("signedData");
    if (signedData == nullptr || signedData->fields.empty()) return;
    // Behind the length, which is not signed.
    const uint64_t start = signedData->fields.front().End();
    Add(path, How::kSignedData, progress.signature, {{start, signedData->End() - start}});
    const Field* directory = package_.file.Child("centralDirectory");
    const Field* end = package_.file.Child("endRecord");
    const Field* digests = signedData->Child("digests");
    if (directory == nullptr || end == nullptr || digests == nullptr ||
        digests->fields.size() < 2) {
      return;
    }
    const Field* offset = end->Child("centralDirectoryOffset");
    if (offset == nullptr) return;
    Add(path, How::kContentDigest, progress.content,
        {{0, block.offset},
         {block.End(), offset->offset - block.End()},
         {offset->End(), package_.file.size - offset->End()}});
  }

  // Adds what the verifier reads of a signer besides the signed data. Of one for other platforms
  // that is how it is divided, and the SDK range.
  void AddStructure(const Field& signer, bool isLookedAt, Ranges& out) const {
    if (!isLookedAt) {
      AddFrame(signer, out);
      return;
    }
    for (const Field& field : signer.fields) {
      if (field.name == std::string_view("signedData")) {
        AddField(field.Child("length"), out);
      } else if (field.name == std::string_view("signatures")) {
        AddSignatures(field, out);
      } else {
        AddField(&field, out);
      }
    }
  }

  void AddSignatures(const Field& signatures, Ranges& out) const {
    const int32_t chosen = ChosenAlgorithm(package_, signatures);
    for (const Field& signature : signatures.fields) {
      if (signature.index < 0 || signature.index == chosen) {
        AddField(&signature, out);
        continue;
      }
      for (const Field& field : signature.fields) {
        if (field.name != std::string_view("value")) AddField(&field, out);
      }
    }
  }

  // As deep as the tree, whose depth no file decides.
  void AddFrame(const Field& field, Ranges& out) const {
    constexpr std::string_view kFrame[] = {"length", "valueLength", "minSdk", "maxSdk"};
    for (const Field& child : field.fields) {
      if (std::find(std::begin(kFrame), std::end(kFrame), child.name) != std::end(kFrame)) {
        AddField(&child, out);
      }
      AddFrame(child, out);
    }
  }

  // How far the verifier has come with the JAR signature.
  struct JarProgress {
    Checked signatureFile = Checked::kNotLookedAt;
    Checked manifest = Checked::kNotLookedAt;
    Checked entry = Checked::kNotLookedAt;
  };

  JarProgress ProgressOfJar() const {
    constexpr Checked kGood = Checked::kVerified;
    if (outcome_.scheme != 1) return {};
    if (outcome_.isVerified) return {kGood, kGood, kGood};
    if (Has(outcome_.refusals, {Reason::kJarEntryUnreadable, Reason::kJarEntryUnlisted,
                                Reason::kJarEntryMismatch, Reason::kJarEntryDiffers})) {
      return {kGood, kGood, Checked::kFailed};
    }
    if (Has(outcome_.refusals, {Reason::kJarManifestMismatch}))
      return {kGood, Checked::kFailed, {}};
    return {Checked::kFailed, Checked::kNotLookedAt, Checked::kNotLookedAt};
  }

  void CoverJar() {
    const std::string& by = package_.signatureBlock;
    if (by.empty()) return;
    std::map<std::string_view, const Field*> entries;
    Ranges structure;
    for (const Field& field : package_.file.fields) {
      if (field.name == std::string_view("entries")) {
        if (field.extras) entries[field.extras->text] = &field;
        AddArchiveStructure(field, structure);
      } else if (field.name != std::string_view("gap") &&
                 field.name != std::string_view("comment") &&
                 field.name != std::string_view("signingBlock")) {
        AddField(&field, structure);
      }
    }
    const auto dataOf = [&](std::string_view name) {
      const auto found = entries.find(name);
      return found == entries.end() ? nullptr : found->second->Child("data");
    };
    const JarProgress progress = ProgressOfJar();
    Ranges signatureFile;
    AddField(dataOf(package_.signatureFile), signatureFile);
    Add(by, How::kSignedData, progress.signatureFile, std::move(signatureFile));
    const Field* manifest = dataOf("META-INF/MANIFEST.MF");
    if (manifest != nullptr) {
      Add(by, How::kSignedData, progress.manifest, {RangeOf(*manifest)});
      CoverNamed(by, *manifest, entries, progress.entry);
    }
    AddField(dataOf(by), structure);
    AddField(dataOf("AndroidManifest.xml"), structure);
    Add(by, How::kStructure, Checked::kNotLookedAt, std::move(structure));
  }

  // Adds the entries that the manifest names. The verifier looks at one of them.
  void CoverNamed(const std::string& by, const Field& manifest,
                  const std::map<std::string_view, const Field*>& entries, Checked checked) {
    const Decoded* decoded = manifest.DecodedBytes();
    if (decoded == nullptr) return;
    ManifestMf parsed;
    if (!parsed.load({decoded->bytes.begin(), decoded->bytes.end()})) return;
    Ranges lookedAt;
    Ranges others;
    for (const auto& [name, digest] : CollectEntryDigests(parsed)) {
      const auto entry = entries.find(name);
      if (entry == entries.end()) continue;
      AddField(entry->second->Child("data"), name == "classes.dex" ? lookedAt : others);
    }
    Add(by, How::kNamed, checked, std::move(lookedAt));
    Add(by, How::kNamed, Checked::kNotLookedAt, std::move(others));
  }

  // All of an entry but its data.
  static void AddArchiveStructure(const Field& entry, Ranges& out) {
    for (const Field& field : entry.fields) {
      if (field.name != std::string_view("data")) AddField(&field, out);
    }
  }

  const Package& package_;
  const Outcome& outcome_;
  std::vector<Coverage> coverage_;
};

}  // namespace

std::vector<Coverage> CoverageOf(const Package& package, const Outcome& outcome) {
  return Coverer(package, outcome).Cover();
}

const char* TextOf(How how) {
  switch (how) {
    case How::kContentDigest:
      return "content digest";
    case How::kSignedData:
      return "signed data";
    case How::kNamed:
      return "named in the manifest";
    case How::kStructure:
      return "structure";
    case How::kNone:
      break;
  }
  return "not at all";
}

const char* TextOf(Checked checked) {
  switch (checked) {
    case Checked::kVerified:
      return "verified";
    case Checked::kFailed:
      return "failed";
    case Checked::kNotLookedAt:
      break;
  }
  return "not looked at";
}

int32_t ChosenAlgorithm(const Package& package, const Field& sequence) {
  struct Item {
    uint32_t algorithmId;
    int32_t index;
  };
  std::vector<Item> items;
  for (const Field& item : sequence.fields) {
    const Field* algorithm = item.Child("algorithm");
    if (algorithm == nullptr) continue;
    items.push_back({static_cast<uint32_t>(NumberIn(*algorithm, package.Bytes())), item.index});
  }
  const auto best = FindBestSupported(items);
  return best == items.end() ? -1 : best->index;
}

int32_t ChosenSigner(const Package& package, const Field& pair) {
  const Field* signers = pair.Child("signers");
  int sdk = 0;
  if (signers == nullptr || !GetVersionSDK(sdk)) return -1;
  int32_t chosen = -1;
  size_t count = 0;
  for (const Field& signer : signers->fields) {
    const Field* least = signer.Child("minSdk");
    const Field* most = signer.Child("maxSdk");
    if (least == nullptr || most == nullptr) continue;
    const auto level = static_cast<uint32_t>(sdk);
    if (level < NumberIn(*least, package.Bytes()) || level > NumberIn(*most, package.Bytes())) {
      continue;
    }
    chosen = signer.index;
    ++count;
  }
  return count == 1 ? chosen : -1;
}

}  // namespace Quill::Anatomy
