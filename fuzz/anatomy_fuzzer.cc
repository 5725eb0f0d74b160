// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cstring>
#include <string_view>

#include <quillon/manifest_mf.h>

#include "anatomy/coverage.h"
#include "anatomy/package.h"
#include "anatomy/signer_tree.h"
#include "fuzz/fuzzing.h"
#include "fuzz/package_mutator.h"
#include "jar/pkcs7.h"
#include "schemes/apk_signing_block_v2.h"
#include "schemes/apk_signing_block_v3.h"
#include "signing_block/apk_package.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_file.h"

using namespace Quill;           // NOLINT(google-build-using-namespace)
using namespace Quill::Anatomy;  // NOLINT(google-build-using-namespace)

namespace {

bool HasBytes(const Field* field, ByteCursor file, const ByteVector& bytes) {
  return field == nullptr ? bytes.empty() : BytesOf(*field, file).ToVector() == bytes;
}

bool HasNumber(const Field& parent, const char* name, ByteCursor file, uint32_t number) {
  const Field* field = parent.Child(name);
  return field != nullptr && NumberIn(*field, file) == number;
}

// Checks the items of a list, which are the fields with an index.
template <typename Record, typename Check>
void CheckList(const Field* list, const std::vector<Record>& records, Check check) {
  Require(list != nullptr, "there is a list");
  size_t count = 0;
  for (const Field& item : list->fields) {
    if (item.index < 0) continue;
    Require(count < records.size() && check(item, records[count]), "the verifier reads the item");
    ++count;
  }
  Require(count == records.size(), "a list is whole");
}

template <typename Signer>
void CheckSigner(const Field& signer, ByteCursor file, const Signer& parsed) {
  const auto isItem = [file](const Field& item, const auto& record) {
    return HasNumber(item, "algorithm", file, record.algorithmId) &&
           HasBytes(item.Child("value"), file, record.value);
  };
  const Field& signedData = *signer.Child("signedData");
  CheckList(signedData.Child("digests"), parsed.signedData.digests, isItem);
  CheckList(signer.Child("signatures"), parsed.signatures, isItem);
  CheckList(signedData.Child("certificates"), parsed.signedData.certificates,
            [file](const Field& item, const ByteVector& der) {
              return HasBytes(item.Child("certificate"), file, der);
            });
  CheckList(signedData.Child("attributes"), parsed.signedData.attributes,
            [file](const Field& item, const Attribute& attribute) {
              const bool isShort = item.size < 8;  // its ID goes on behind it
              return isShort || HasNumber(item, "id", file, attribute.id);
            });
  Require(HasBytes(signer.Child("publicKey")->Child("key"), file, parsed.publicKey),
          "the verifier reads the key");
}

void CheckLineage(const Field& signer, ByteCursor file, const std::vector<ProofOfRotation>& chain) {
  size_t count = 0;
  for (const Field& attribute : signer.Child("signedData")->Child("attributes")->fields) {
    const Field* lineage = attribute.Child("lineage");
    if (lineage == nullptr) continue;
    for (const Field& level : lineage->fields) {
      if (level.index < 0) continue;
      Require(count < chain.size(), "the verifier reads as many levels");
      const ProofOfRotation& parsed = chain[count++];
      Require(HasNumber(level, "flags", file, parsed.flags) &&
                  HasNumber(level, "algorithm", file, parsed.signatureAlgorithmId) &&
                  HasBytes(level.Child("signature")->Child("value"), file, parsed.signature) &&
                  HasBytes(Find(level, "signedData.certificate.certificate"), file,
                           parsed.rotationCertificate.parsed.certificate),
              "the verifier reads the level");
    }
  }
  Require(count == chain.size(), "the lineage is whole");
}

void CheckPair(const Field& pair, ByteCursor file) {
  const bool isV3 = pair.name == std::string_view("v3");
  const bool isV2 = pair.name == std::string_view("v2");
  if (!isV2 && !isV3) return;
  const auto at = [file](const Field& field) { return file.Data() + field.offset; };
  const auto* block = reinterpret_cast<const ApkSignatureBlock*>(at(pair));
  const Field& signers = *pair.Child("signers");
  const bool hasSigner = signers.Child("", 0) != nullptr;
  const bool isRead =
      isV3 ? ApkSigningBlockV3(block, {}).Parse() : ApkSigningBlockV2(block, {}).Parse();
  Require(isRead == (AreSignersRead(pair) && hasSigner), "the verifier parses the same pairs");
  if (!isRead) return;
  for (const Field& signer : signers.fields) {
    if (signer.index < 0) continue;
    const auto* item = reinterpret_cast<const LengthValueItem*>(at(signer));
    if (isV3) {
      ApkSigningBlockV3::SignerV3 parsed;
      Require(ApkSigningBlockV3::ParseSigner(item, parsed), "the verifier parses the signer");
      CheckSigner(signer, file, parsed);
      Require(HasNumber(signer, "maxSdk", file, parsed.maxSdk), "the verifier reads the range");
      CheckLineage(signer, file, parsed.signedData.proofOfRotation);
    } else {
      ApkSigningBlockV2::SignerV2 parsed;
      Require(ApkSigningBlockV2::ParseSigner(item, parsed), "the verifier parses the signer");
      CheckSigner(signer, file, parsed);
    }
  }
}

// Checks that the verifier and the tree find the same pairs broken. A block that an end record
// interrupts is left out.
void CheckPairsOf(const Package& package, const ApkPackage& verifier) {
  const auto* end = verifier.FindEocdRecord();
  const auto* directory = end != nullptr ? verifier.FindCentralDirectory(end) : nullptr;
  const auto* start = directory != nullptr ? verifier.FindApkSigningBlock(directory) : nullptr;
  const Field* block = package.file.Child("signingBlock");
  const uint8_t* file = package.Bytes().Data();
  if (start == nullptr) return;
  Require(block != nullptr, "the tree has the verifier's block");
  if (file + block->End() != reinterpret_cast<const uint8_t*>(directory)) return;
  std::vector<const ApkSignatureBlock*> pairs;
  const bool isRead = block->Child("size") != nullptr && block->Child("unread") == nullptr;
  Require(verifier.ParseApkSignatureBlocks(start, pairs) == isRead, "the same pairs are read");
}

// Checks the block that the verifier has found, and the bytes whose digest it compares.
void CheckBlock(const Package& package, ApkPackage& verifier) {
  const ByteCursor file = package.Bytes();
  const auto* end = verifier.FindEocdRecord();
  const auto* directory = verifier.FindCentralDirectory(end);
  const auto* start = verifier.FindApkSigningBlock(directory);
  const auto offsetOf = [file](const void* position) {
    return static_cast<uint64_t>(static_cast<const uint8_t*>(position) - file.Data());
  };
  const Field* block = package.file.Child("signingBlock");
  Require(block != nullptr && block->offset == offsetOf(start), "the block is the verifier's");

  std::vector<const ApkSignatureBlock*> pairs;
  Require(verifier.ParseApkSignatureBlocks(start, pairs), "a block that counts has good pairs");
  size_t count = 0;
  for (const Field& pair : block->fields) {
    if (pair.fields.empty()) continue;
    Require(count < pairs.size() && offsetOf(pairs[count]) == pair.offset, "a pair is there");
    ++count;
  }
  Require(count == pairs.size(), "the list of pairs is whole");
  const Field* chosen = Find(package.file, package.chosenPair);
  Require(chosen != nullptr && chosen->offset == offsetOf(verifier.FindApkSignatureBlock(pairs)),
          "the chosen pair is the verifier's");

  ByteVector covered(file.Remaining());
  const auto mark = [&covered](uint64_t offset, uint64_t size, uint8_t value) {
    std::fill_n(covered.begin() + static_cast<ptrdiff_t>(offset), size, value);
  };
  std::vector<uint8_t> copy(file.Data() + offsetOf(end), file.Data() + file.Remaining());
  std::vector<RawData> chunks;
  verifier.PrepareRawDataChunks(reinterpret_cast<EocdRecord*>(copy.data()), chunks);
  chunks.back().data = reinterpret_cast<const uint8_t*>(end);  // is in the copy
  for (const RawData& chunk : chunks) mark(offsetOf(chunk.data), chunk.length, 1);
  mark(offsetOf(end) + offsetof(EocdRecord, centralDirectoryOffset), 4, 0);  // another in the copy
  for (const Coverage& one : CoverageOf(package, {})) {
    if (one.how != How::kContentDigest) continue;
    ByteVector own(file.Remaining());
    for (const ByteRange& range : one.ranges) {
      std::fill_n(own.begin() + static_cast<ptrdiff_t>(range.offset), range.size, uint8_t{1});
    }
    Require(own == covered, "the content is the verifier's");
  }
}

// Checks that the ranges of "nothing" and all others are the file.
void CheckCoverage(const Package& package) {
  ByteVector others(package.file.size);
  for (const Coverage& one : CoverageOf(package, {})) {
    for (const ByteRange& range : one.ranges) {
      Require(range.size <= others.size() && range.offset <= others.size() - range.size,
              "a range lies in the file");
      const auto begin = others.begin() + static_cast<ptrdiff_t>(range.offset);
      const auto end = begin + static_cast<ptrdiff_t>(range.size);
      Require(one.by != "nothing" || std::find(begin, end, 1) == end, "nothing covers it");
      std::fill(begin, end, uint8_t{1});
    }
  }
  Require(std::find(others.begin(), others.end(), 0) == others.end(), "each byte is accounted for");
}

void CheckDecoded(const Field& entry) {
  const Field* data = entry.Child("data");
  const Decoded* decoded = data != nullptr ? data->DecodedBytes() : nullptr;
  if (decoded == nullptr) return;
  const ByteCursor bytes(decoded->bytes);
  ManifestMf manifest;
  static_cast<void>(manifest.load({decoded->bytes.begin(), decoded->bytes.end()}));
  size_t count = 0;
  for (const Field& section : decoded->root.fields) {
    if (section.name != std::string_view("sections")) continue;
    Require(count < manifest.getSections().size(), "the parser reads as many sections");
    const ManifestMf::Section& read = manifest.getSections()[count++];
    const auto name = read.find("Name");
    Require(ValueText(section, bytes) == (name == read.end() ? "" : name->second),
            "the parser reads the section's name");
  }
  CBS input;
  CBS_init(&input, decoded->bytes.data(), decoded->bytes.size());
  CBS digestAlgorithm, signatureAlgorithm, signature;
  if (!parse_pkcs7(input, &digestAlgorithm, &signatureAlgorithm, &signature)) return;
  if (decoded->root.Child("contentInfo") == nullptr) return;  // the block has another file's name
  const Field* signer = Find(decoded->root, "contentInfo.content.signedData.signerInfos[0]");
  Require(signer != nullptr && signer->Child("signature") != nullptr &&
              signer->Child("signature")->End() ==
                  static_cast<uint64_t>(CBS_data(&signature) + CBS_len(&signature) -
                                        decoded->bytes.data()),
          "the verifier reads the signature");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;  // an empty file cannot be mapped
  LogCapture log;
  const auto mapping = GuardedMapping({data, data + size});
  const Package package = ReadPackage(mapping);
  Require(package.file.offset == 0 && package.file.size == size, "the root is the file");
  Require(IsTiled(package.file), "the leaves tile the file");
  CheckCoverage(package);

  ApkPackage verifier(mapping);
  const bool isFound = verifier.ParseApkPackage();
  Require(isFound == !package.chosenPair.empty(), "a pair is chosen as by the verifier");
  CheckPairsOf(package, verifier);
  if (isFound) CheckBlock(package, verifier);
  for (const Field& field : package.file.fields) {
    if (field.name == std::string_view("entries")) CheckDecoded(field);
    if (field.name != std::string_view("signingBlock")) continue;
    for (const Field& pair : field.fields) {
      if (isFound) CheckPair(pair, package.Bytes());
    }
  }
  return 0;
}

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
  Random random(seed);
  auto parts = TakeApart({data, data + size});
  if (!parts || random.OneIn(4)) return LLVMFuzzerMutate(data, size, maxSize);
  ChangeParts(*parts, random);
  return PutMutated(PutTogether(*parts), data, size, maxSize);
}
