// SPDX-License-Identifier: Apache-2.0

#include "signing_block/apk_package.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

#include "findings/acceptance.h"
#include "findings/refusal.h"
#include "schemes/apk_signature_block_base.h"
#include "schemes/apk_signing_block_v2.h"
#include "schemes/apk_signing_block_v3.h"
#include "util/byte_cursor.h"
#include "util/log.h"
#include "util/nothrow.h"

namespace Quill {
namespace {

constexpr uint64_t kChunkSize = 1 << 20;
constexpr uint64_t kRegions = 3;
constexpr uint64_t kFooterSize = sizeof(ApkSigningBlockFooter);

// Appends the region in consecutive pieces of kChunkSize; the last one may be shorter.
void AppendChunks(const uint8_t* data, uint64_t length, std::vector<RawData>& chunks) {
  for (uint64_t offset = 0; offset < length; offset += kChunkSize) {
    chunks.push_back({data + offset, std::min(kChunkSize, length - offset)});
  }
}

const ApkSignatureBlock* FindPair(const std::vector<const ApkSignatureBlock*>& pairs, uint32_t id) {
  const auto found = std::find_if(pairs.begin(), pairs.end(), [id](const ApkSignatureBlock* pair) {
    return CopyRecord<ApkSignatureBlock>(pair).id == id;
  });
  return found == pairs.end() ? nullptr : *found;
}

// Warns of each ID that several pairs have. Padding says nothing, however often it stands there.
void WarnOfRepeatedPairs(const std::vector<const ApkSignatureBlock*>& pairs) {
  constexpr uint32_t kPaddingId = 0x42726577;
  std::vector<uint32_t> ids;
  ids.reserve(pairs.size());
  for (const ApkSignatureBlock* pair : pairs) {
    const uint32_t id = CopyRecord<ApkSignatureBlock>(pair).id;
    if (id != kPaddingId) ids.push_back(id);
  }
  std::sort(ids.begin(), ids.end());
  for (auto id = std::adjacent_find(ids.begin(), ids.end()); id != ids.end();
       id = std::adjacent_find(std::upper_bound(id, ids.end(), *id), ids.end())) {
    Warn(Warning::kRepeatedPair, *id);
  }
}

// Moves behind the next pair. False logs one error line.
bool SkipPair(ByteCursor& pairs) {
  const auto remaining = static_cast<ptrdiff_t>(pairs.Remaining());
  uint64_t length;
  if (!pairs.TakeU64(length)) {
    QUILL_LOGE(
        "Out of range for sequence of uint64-length-prefixed ID-value pairsin APK Signing Block: remaining_space: %td\n",
        remaining);
    return Refuse(Reason::kBlockPairs);
  }
  if (length < sizeof(ApkSignatureBlock::id)) {
    QUILL_LOGE("Bad lenght of APK Signing Block: 0x%llx\n",
               static_cast<unsigned long long>(length));
    return Refuse(Reason::kBlockPairs);
  }
  ByteCursor body;
  if (!pairs.Take(length, body)) {
    QUILL_LOGE(
        "Out of range for sequence of uint64-length-prefixed ID-value pairsin APK Signing Block: remaining_space: %td block->len: %lld\n",
        remaining, static_cast<long long>(length));
    return Refuse(Reason::kBlockPairs);
  }
  return true;
}

}  // namespace

uint64_t ApkPackage::OffsetOf(const void* position) const {
  return static_cast<uint64_t>(static_cast<const uint8_t*>(position) - mapping_->Data());
}

ByteCursor ApkPackage::BeforeFooter(const void* position) const {
  const uint64_t blockEnd = blockEnd_ != 0 ? blockEnd_ : mapping_->Size();
  const uint64_t footer = blockEnd - std::min(blockEnd, kFooterSize);
  return {position, footer - std::min(footer, OffsetOf(position))};
}

const EocdRecord* ApkPackage::FindEocdRecord() const {
  constexpr uint64_t kRecordSize = sizeof(EocdRecord);
  constexpr uint64_t kLeastOffset = kRecordSize;
  const uint64_t fileSize = mapping_->Size();
  if (fileSize < kLeastOffset + kRecordSize) return nullptr;

  // Deliberate: the whole file is searched, not only as far back as the longest comment reaches,
  // and the record's comment length is not compared.
  //
  // Plain scan: the attacker controls how often any signature byte occurs, so a byte search has no
  // better worst case.
  for (uint64_t offset = fileSize - kRecordSize; offset >= kLeastOffset; --offset) {
    const auto* record = reinterpret_cast<const EocdRecord*>(mapping_->Data() + offset);
    if (CopyRecord<EocdRecord>(record).signature == EocdRecord::kSignature) return record;
  }
  return nullptr;
}

const CentralDirectory* ApkPackage::FindCentralDirectory(const EocdRecord* eocd) const {
  const auto record = CopyRecord<EocdRecord>(eocd);
  const uint64_t fileSize = mapping_->Size();
  const uint64_t offset = record.centralDirectoryOffset;
  if (fileSize < offset || fileSize - offset < record.centralDirectorySize) return nullptr;
  if (fileSize - offset < sizeof(CentralDirectory)) return nullptr;

  const auto* directory = reinterpret_cast<const CentralDirectory*>(mapping_->Data() + offset);
  const uint32_t signature = CopyRecord<CentralDirectory>(directory).signature;
  return signature == CentralDirectory::kSignature ? directory : nullptr;
}

const ApkSigningBlock* ApkPackage::FindApkSigningBlock(
    const CentralDirectory* centralDirectory) const {
  const uint64_t end = OffsetOf(centralDirectory);
  if (end < kFooterSize) return nullptr;
  const auto footer = CopyRecord<ApkSigningBlockFooter>(mapping_->Data() + end - kFooterSize);
  if (std::memcmp(footer.magic, ApkSigningBlockFooter::kMagic, ApkSigningBlockFooter::kMagicSize) !=
      0) {
    return nullptr;
  }
  const uint64_t largest = end - sizeof(ApkSigningBlock);
  if (footer.size > largest) {
    Refuse(Reason::kBlockTooLarge, {footer.size, {}, nullptr, nullptr, largest});
    return nullptr;
  }
  const auto* block = reinterpret_cast<const ApkSigningBlock*>(
      mapping_->Data() + end - footer.size - sizeof(ApkSigningBlock));
  const uint64_t size = CopyRecord<ApkSigningBlock>(block).size;
  if (size == footer.size) return block;
  Refuse(Reason::kBlockSizesDiffer, {size, {}, nullptr, nullptr, footer.size});
  return nullptr;
}

bool ApkPackage::CheckEndOfCentralAndCentralDirectories(
    const EocdRecord* eocd, const CentralDirectory* centralDirectory) const {
  const auto record = CopyRecord<EocdRecord>(eocd);
  const uint64_t eocdOffset = OffsetOf(eocd);
  const uint64_t directoryOffset = OffsetOf(centralDirectory);
  return (eocdOffset >= directoryOffset &&
          eocdOffset - directoryOffset == record.centralDirectorySize &&
          eocdOffset + sizeof record + record.commentLength == mapping_->Size()) ||
         Refuse(Reason::kBlockEndRecord);
}

bool ApkPackage::ParseApkSignatureBlocks(const ApkSigningBlock* block,
                                         std::vector<const ApkSignatureBlock*>& out) const {
  ByteCursor rest = BeforeFooter(block);
  ByteCursor cursor;
  uint64_t size;
  if (!rest.TakeU64(size) || size < kFooterSize || !rest.Take(size - kFooterSize, cursor)) {
    // Deliberate: this is the only message here at info priority. The slips in the others stay.
    QUILL_LOGI(
        "Out of range for sequence of uint64-length-prefixed ID-value pairs in APK Signing Block\n");
    return Refuse(Reason::kBlockTooSmall);
  }

  std::vector<const ApkSignatureBlock*> pairs;
  while (cursor.Remaining() != 0) {
    pairs.push_back(reinterpret_cast<const ApkSignatureBlock*>(cursor.Data()));
    if (!SkipPair(cursor)) return false;
  }
  out = std::move(pairs);
  return true;
}

const ApkSignatureBlock* ApkPackage::FindApkSignatureBlock(
    const std::vector<const ApkSignatureBlock*>& pairs) {
  if (const auto* pair = FindPair(pairs, ApkSignatureBlock::kSchemeV3Id)) {
    versionScheme_ = 3;
    return pair;
  }
  if (const auto* pair = FindPair(pairs, ApkSignatureBlock::kSchemeV2Id)) {
    versionScheme_ = 2;
    return pair;
  }
  Refuse(Reason::kBlockNoScheme);
  return nullptr;
}

bool ApkPackage::ParseApkPackage() {
  const EocdRecord* eocd = FindEocdRecord();
  if (eocd == nullptr) return false;
  const CentralDirectory* centralDirectory = FindCentralDirectory(eocd);
  if (centralDirectory == nullptr) return false;
  const ApkSigningBlock* signingBlock = FindApkSigningBlock(centralDirectory);
  if (signingBlock == nullptr) return false;
  if (!CheckEndOfCentralAndCentralDirectories(eocd, centralDirectory)) return false;
  blockEnd_ = OffsetOf(centralDirectory);
  std::vector<const ApkSignatureBlock*> pairs;
  if (!ParseApkSignatureBlocks(signingBlock, pairs)) return false;
  const ApkSignatureBlock* chosenPair = FindApkSignatureBlock(pairs);
  if (chosenPair == nullptr) return false;

  if (IsRecording()) WarnOfRepeatedPairs(pairs);
  NoteSigningBlock(OffsetOf(signingBlock), blockEnd_ - OffsetOf(signingBlock));
  eocd_ = eocd;
  centralDirectory_ = centralDirectory;
  signingBlock_ = signingBlock;
  chosenPair_ = chosenPair;
  return true;
}

void ApkPackage::PrepareRawDataChunks(EocdRecord* eocdCopy, std::vector<RawData>& chunks) const {
  const uint64_t recordSize = sizeof *eocdCopy + eocdCopy->commentLength;
  const uint64_t signingBlockOffset = OffsetOf(signingBlock_);
  const uint64_t directoryOffset = OffsetOf(centralDirectory_);
  chunks.reserve(chunks.size() + mapping_->Size() / kChunkSize + kRegions);
  AppendChunks(mapping_->Data(), signingBlockOffset, chunks);
  AppendChunks(mapping_->Data() + directoryOffset, mapping_->Size() - recordSize - directoryOffset,
               chunks);
  eocdCopy->centralDirectoryOffset = static_cast<uint32_t>(signingBlockOffset);
  chunks.push_back({reinterpret_cast<const uint8_t*>(eocdCopy), recordSize});
}

std::unique_ptr<ApkSignatureBlockBase> ApkPackage::CreateApkSignatureBlock(
    const ApkSignatureBlock* pair, std::vector<RawData> chunks, std::optional<uint64_t> length) {
  if (pair == nullptr) {
    QUILL_LOGE("APK signing block is not initialized");
    return nullptr;
  }
  const uint32_t id = CopyRecord<ApkSignatureBlock>(pair).id;
  switch (id) {
    case ApkSignatureBlock::kSchemeV3Id:
      return MakeUniqueNoThrow<ApkSigningBlockV3>(pair, std::move(chunks), length);
    case ApkSignatureBlock::kSchemeV2Id:
      return MakeUniqueNoThrow<ApkSigningBlockV2>(pair, std::move(chunks), length);
    default:
      QUILL_LOGE("Unknown APK signing block: 0x%x", id);
      return nullptr;
  }
}

bool ApkPackage::VerifyApkPackage() {
  // Copies the rest of the file: ParseApkPackage has checked that it is the record and its comment.
  // The length field in the copy is computed, because the file may have changed since.
  const uint64_t eocdOffset = OffsetOf(eocd_);
  std::vector<uint8_t> eocdCopy(mapping_->Data() + eocdOffset, mapping_->Data() + mapping_->Size());
  auto* eocd = reinterpret_cast<EocdRecord*>(eocdCopy.data());
  eocd->commentLength = static_cast<uint16_t>(eocdCopy.size() - sizeof *eocd);
  std::vector<RawData> chunks;
  PrepareRawDataChunks(eocd, chunks);

  ByteCursor rest = BeforeFooter(chosenPair_);
  uint64_t length = 0;
  const bool isWhole =
      rest.TakeU64(length) && length >= sizeof chosenPair_->id && length <= rest.Remaining();
  const std::unique_ptr<ApkSignatureBlockBase> block =
      CreateApkSignatureBlock(isWhole ? chosenPair_ : nullptr, std::move(chunks), length);
  if (!block) {
    QUILL_LOGE("Can't create APK signature block");
    return false;
  }
  block->SetPages(pages_);
  if (!block->Parse()) {
    QUILL_LOGE("Can't parse APK signature block");
    return false;
  }
  if (!block->Verify()) {
    QUILL_LOGE("Can't verify APK signature block");
    return false;
  }
  if (!block->GetPublicKeys(publicKeys_)) {
    QUILL_LOGE("Can't find public keys");
    return false;
  }
  return true;
}

bool ApkPackage::GetMainPublicKey(std::vector<uint8_t>& out) {
  if (publicKeys_.empty()) {
    QUILL_LOGE("Can't find any public key");
    return false;
  }
  if (&out != &publicKeys_.front()) out = publicKeys_.front();
  return true;
}

uint32_t ApkPackage::GetVersionScheme() const { return versionScheme_; }

std::string ApkPackage::GetVersionName() const {
  switch (versionScheme_) {
    case 1:
      return "V1";
    case 2:
      return "V2";
    case 3:
      return "V3";
    default:
      return "Unknown version";
  }
}

}  // namespace Quill
