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

namespace Quill {

class ApkSignatureBlockBase;

// Finds the APK Signing Block of a mapped package, chooses its v3 block before its v2 block, and
// has the chosen one verified. Works in place: no package data but the End of Central Directory
// record is copied here.
//
// The file may change while it is mapped. Each step reads a length once and compares it with what
// encloses it, whatever an earlier step read there.
//
// Called in this order only: ParseApkPackage, then, if that was true, VerifyApkPackage, then, if
// that was true, GetMainPublicKey. Pointers that are handed around point into the mapping. Virtual
// functions stand in binary order.
class ApkPackage {
 public:
  // Shares the mapping of the whole package file.
  explicit ApkPackage(std::shared_ptr<MapFile> mapping) : mapping_(std::move(mapping)) {}
  ApkPackage(const ApkPackage&) = delete;
  ApkPackage& operator=(const ApkPackage&) = delete;

  // The last record in the file that does not start within its first 22 bytes, or null.
  virtual const EocdRecord* FindEocdRecord() const;
  // The central directory that `eocd` names, or null when the file has none there.
  virtual const CentralDirectory* FindCentralDirectory(const EocdRecord* eocd) const;
  // Replaces `out` with the block's pairs, each whole and inside the block; false, with one log
  // line and `out` as it was, when the pairs do not fill the block exactly, or when the block runs
  // past the central directory (past the file, before ParseApkPackage has found a directory).
  virtual bool ParseApkSignatureBlocks(const ApkSigningBlock* block,
                                       std::vector<const ApkSignatureBlock*>& out) const;
  // The signing block that ends where `centralDirectory` starts, or null.
  virtual const ApkSigningBlock* FindApkSigningBlock(
      const CentralDirectory* centralDirectory) const;
  // True when the central directory, the record and its comment follow each other to the file's
  // end.
  virtual bool CheckEndOfCentralAndCentralDirectories(
      const EocdRecord* eocd, const CentralDirectory* centralDirectory) const;
  // Appends the digested regions in pieces of at most 1 MiB: ZIP entries, central directory, and
  // last the record. `eocdCopy`, a private copy of the record and its comment, is made to point at
  // the signing block, as it did before the block was inserted; it must outlive the chunks.
  virtual void PrepareRawDataChunks(EocdRecord* eocdCopy, std::vector<RawData>& chunks) const;
  virtual ~ApkPackage() = default;
  // False, with no message but that of ParseApkSignatureBlocks, when there is no usable v2 or v3
  // block.
  virtual bool ParseApkPackage();
  // Verifies the chosen block and keeps the public keys that it yields. Logs one line for the step
  // that failed, after that step's own.
  virtual bool VerifyApkPackage();
  // Copies the first public key; false, with one error line, when there is none.
  virtual bool GetMainPublicKey(std::vector<uint8_t>& out);
  // 2 or 3; 0 before a successful parse.
  virtual uint32_t GetVersionScheme() const;
  // "V2" or "V3", for log lines; "Unknown version" before a successful parse.
  virtual std::string GetVersionName() const;

  // The pair to verify, v3 before v2, or null; sets the version scheme when there is one.
  const ApkSignatureBlock* FindApkSignatureBlock(
      const std::vector<const ApkSignatureBlock*>& pairs);
  // A verifier for the pair's scheme; null, with one error line, when `pair` is null or of no known
  // scheme, or null without a line when it cannot be allocated. `length` is the pair's length if
  // the caller has read it; the verifier does not read it again then.
  std::unique_ptr<ApkSignatureBlockBase> CreateApkSignatureBlock(
      const ApkSignatureBlock* pair, std::vector<RawData> chunks,
      std::optional<uint64_t> length = std::nullopt);

 private:
  uint64_t OffsetOf(const void* position) const;
  // The bytes from `position`, which lies in the file, to where the pairs end at the latest: the
  // footer. None when `position` lies behind that.
  ByteCursor BeforeFooter(const void* position) const;

  std::shared_ptr<MapFile> mapping_;
  std::vector<std::vector<uint8_t>> publicKeys_;
  const EocdRecord* eocd_ = nullptr;
  const CentralDirectory* centralDirectory_ = nullptr;
  const ApkSigningBlock* signingBlock_ = nullptr;
  const ApkSignatureBlock* chosenPair_ = nullptr;
  uint32_t versionScheme_ = 0;
  uint64_t blockEnd_ = 0;  // offset of the central directory; 0 while none was found
};

}  // namespace Quill
