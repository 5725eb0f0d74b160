// SPDX-License-Identifier: Apache-2.0

#include <cstring>

#include "fuzz/fuzzing.h"
#include "fuzz/package_mutator.h"
#include "signing_block/apk_package.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_file.h"

using Quill::Require;

namespace {

// A range of bytes in the file.
struct Part {
  const uint8_t* start;
  uint64_t length;

  bool IsInside(const Part& whole) const {
    return start >= whole.start && start <= whole.start + whole.length &&
           length <= static_cast<uint64_t>(whole.start + whole.length - start);
  }
};

template <typename Record>
Part RecordAt(const Record* record) {
  return {reinterpret_cast<const uint8_t*>(record), sizeof *record};
}

// Checks that the pairs follow each other and fill the block between its two size fields.
void CheckPairs(const Quill::ApkPackage& package, const Quill::ApkSigningBlock* block,
                const Quill::CentralDirectory* directory) {
  std::vector<const Quill::ApkSignatureBlock*> pairs;
  if (!package.ParseApkSignatureBlocks(block, pairs)) {
    Require(pairs.empty(), "a refused block has no pairs");
    return;
  }
  const uint8_t* cursor = RecordAt(block + 1).start;
  for (const Quill::ApkSignatureBlock* pair : pairs) {
    Require(RecordAt(pair).start == cursor, "a pair starts where the last one ended");
    Quill::ApkSignatureBlock record;
    std::memcpy(&record, pair, sizeof record);
    cursor += sizeof record.length + record.length;
  }
  Require(cursor + sizeof(Quill::ApkSigningBlockFooter) == RecordAt(directory).start,
          "the last pair ends at the footer");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;  // an empty file cannot be mapped
  Quill::LogCapture log;
  const auto mapping = Quill::GuardedMapping({data, data + size});
  const Part file{mapping->Data(), mapping->Size()};
  Quill::ApkPackage package(mapping);

  if (const auto* eocd = package.FindEocdRecord()) {
    Require(RecordAt(eocd).IsInside(file), "the end record lies in the file");
    if (const auto* directory = package.FindCentralDirectory(eocd)) {
      Require(RecordAt(directory).IsInside(file), "the central directory starts in the file");
      static_cast<void>(package.CheckEndOfCentralAndCentralDirectories(eocd, directory));
      if (const auto* block = package.FindApkSigningBlock(directory)) {
        Require(RecordAt(block).IsInside(file), "the signing block starts in the file");
        CheckPairs(package, block, directory);
      }
    }
  }

  if (!package.ParseApkPackage()) {
    Require(package.GetVersionScheme() == 0, "no scheme without a block of one");
    return 0;
  }
  std::vector<uint8_t> publicKey;
  if (package.VerifyApkPackage()) {
    Require(package.GetMainPublicKey(publicKey) && !publicKey.empty(), "a good block has a key");
  } else {
    Require(!log.Take().empty(), "a refusal is logged");
  }
  return 0;
}

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
  Quill::Random random(seed);
  auto parts = Quill::TakeApart({data, data + size});
  if (!parts || random.OneIn(4)) return LLVMFuzzerMutate(data, size, maxSize);
  Quill::ChangeParts(*parts, random);
  return Quill::PutMutated(Quill::PutTogether(*parts), data, size, maxSize);
}
