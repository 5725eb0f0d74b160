// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <quillon/file.h>

#include "signing_block/raw_data.h"
#include "signing_block/zip_format.h"
#include "util/byte_cursor.h"
#include "util/file_pages.h"

namespace Quill {

class ApkSignatureBlockBase;

// Finds the APK Signing Block of a mapped package, chooses its v3 pair or else its v2 pair, and
// verifies the chosen one. Pointers to records point into the mapping. Only the End of Central
// Directory record is copied here.
//
// The file may change while it is mapped. Each step reads a length once and compares it with what
// encloses it. No step relies on what an earlier step read there.
//
// Call ParseApkPackage first, VerifyApkPackage if that returned true, and GetMainPublicKey if that
// returned true. Virtual functions stand in binary order.
class ApkPackage {
 public:
  // Shares ownership of the mapping, which covers the whole package file. VerifyApkPackage gives
  // back those of `pages` that it has digested, so that few of them stay in memory.
  explicit ApkPackage(std::shared_ptr<MapFile> mapping, const FilePages& pages = {})
      : mapping_(std::move(mapping)), pages_(pages) {}
  ApkPackage(const ApkPackage&) = delete;
  ApkPackage& operator=(const ApkPackage&) = delete;

  // Returns the last record in the file that does not start within its first 22 bytes, or null.
  [[nodiscard]] virtual const EocdRecord* FindEocdRecord() const;
  // Returns the central directory at the offset in `eocd`, or null when the file has none there.
  [[nodiscard]] virtual const CentralDirectory* FindCentralDirectory(const EocdRecord* eocd) const;
  // Replaces `out` with the block's pairs, each whole and inside the block. Returns false, logs one
  // line and does not change `out` when the pairs do not fill the block exactly, or when the block
  // runs past the central directory (past the file, if ParseApkPackage has found no directory).
  [[nodiscard]] virtual bool ParseApkSignatureBlocks(
      const ApkSigningBlock* block, std::vector<const ApkSignatureBlock*>& out) const;
  // Returns the signing block that ends where `centralDirectory` starts, or null.
  [[nodiscard]] virtual const ApkSigningBlock* FindApkSigningBlock(
      const CentralDirectory* centralDirectory) const;
  // Returns true when the central directory, the record and its comment follow each other and end
  // the file.
  [[nodiscard]] virtual bool CheckEndOfCentralAndCentralDirectories(
      const EocdRecord* eocd, const CentralDirectory* centralDirectory) const;
  // Appends the digested regions in pieces of at most 1 MiB: ZIP entries, central directory, and
  // last the record. `eocdCopy` is a private copy of the record and its comment, and must outlive
  // the chunks. Its directory offset is set to that of the signing block, which it was before the
  // block was inserted.
  virtual void PrepareRawDataChunks(EocdRecord* eocdCopy, std::vector<RawData>& chunks) const;
  virtual ~ApkPackage() = default;
  // Finds the pair to verify. Returns false when there is no usable v2 or v3 pair. Only
  // ParseApkSignatureBlocks logs.
  [[nodiscard]] virtual bool ParseApkPackage();
  // Verifies the chosen pair and keeps the public keys that this finds. False logs one line for the
  // step that failed, after that step's own.
  [[nodiscard]] virtual bool VerifyApkPackage();
  // Copies the first public key. Returns false and logs one error line when there is none.
  [[nodiscard]] virtual bool GetMainPublicKey(std::vector<uint8_t>& out);
  // Returns 2 or 3; 0 before a successful parse.
  virtual uint32_t GetVersionScheme() const;
  // Returns "V2" or "V3", for log lines; "Unknown version" before a successful parse.
  virtual std::string GetVersionName() const;

  // Returns the pair to verify: the first v3 pair, else the first v2 pair, else null. Sets the
  // version scheme when there is one.
  [[nodiscard]] const ApkSignatureBlock* FindApkSignatureBlock(
      const std::vector<const ApkSignatureBlock*>& pairs);
  // Returns a verifier for the pair's scheme. Returns null and logs one error line when `pair` is
  // null or its scheme is unknown; returns null without a line when memory runs out. `length` is
  // the pair's length, if the caller has read it; the verifier then does not read it again.
  [[nodiscard]] std::unique_ptr<ApkSignatureBlockBase> CreateApkSignatureBlock(
      const ApkSignatureBlock* pair, std::vector<RawData> chunks,
      std::optional<uint64_t> length = std::nullopt);

 private:
  uint64_t OffsetOf(const void* position) const;
  // Returns the bytes from `position`, which lies in the file, to the footer of the signing block,
  // where the pairs must end. None when `position` lies behind that.
  ByteCursor BeforeFooter(const void* position) const;

  std::shared_ptr<MapFile> mapping_;
  std::vector<std::vector<uint8_t>> publicKeys_;
  const EocdRecord* eocd_ = nullptr;
  const CentralDirectory* centralDirectory_ = nullptr;
  const ApkSigningBlock* signingBlock_ = nullptr;
  const ApkSignatureBlock* chosenPair_ = nullptr;
  uint32_t versionScheme_ = 0;
  uint64_t blockEnd_ = 0;  // offset of the central directory; 0 until it is found
  FilePages pages_;
};

}  // namespace Quill
