// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cstring>
#include <random>

#include "fuzz/fixed_keys.h"
#include "fuzz/fuzzing.h"
#include "schemes/algorithms.h"
#include "signing_block/apk_package.h"
#include "signing_block/process_hashes.h"
#include "tests/support/log_capture.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"
#include "util/file_pages.h"

using namespace Quill;  // NOLINT(google-build-using-namespace)

namespace {

constexpr size_t kChunk = 1 << 20;
int processors = 1;

// The sizes of a package's parts, the number of threads, and the bit that changes.
struct Recipe {
  uint8_t workers;
  uint8_t entryChunks, directoryChunks;
  int8_t entryRest, directoryRest;
  uint8_t comment;
  uint8_t choices;
  uint8_t flip[4];
};

// Returns bytes that do not repeat, so that each chunk has a digest of its own.
ByteVector Filler(size_t start, size_t size) {
  static const ByteVector bytes = [] {
    ByteVector made(8 * kChunk);
    std::minstd_rand random(1);
    std::generate(made.begin(), made.end(),
                  [&random] { return static_cast<uint8_t>(random() >> 8); });
    return made;
  }();
  const auto begin = bytes.begin() + static_cast<ptrdiff_t>(start);
  return {begin, begin + static_cast<ptrdiff_t>(size)};
}

// Returns the size of so many chunks and a rest, which may be negative.
size_t SizeOf(size_t chunks, int8_t rest) {
  const auto size = static_cast<ptrdiff_t>(chunks * kChunk) + rest;
  return static_cast<size_t>(std::max<ptrdiff_t>(size, 0));
}

// Builds the archive: bytes in place of entries and a central directory, and an end record.
ByteVector Archive(const Recipe& recipe) {
  const ByteVector entries = Filler(0, SizeOf(recipe.entryChunks % 6, recipe.entryRest));
  const ByteVector directory =
      Wire()
          .U32(CentralDirectory::kSignature)
          .Bytes(Filler(6 * kChunk, SizeOf(recipe.directoryChunks % 2, recipe.directoryRest)));
  return Wire()
      .Bytes(entries)
      .Bytes(directory)
      .U32(EocdRecord::kSignature)
      .Fill(8)
      .U32(directory.size())
      .U32(entries.size())
      .U16(0);
}

bool IsVerified(const ByteVector& package) {
  const Fd file = MemoryFile(package);
  const std::shared_ptr<MapFile> mapping = MapFileRO(file.GetFd());
  ApkPackage opened(mapping, FilePages(*mapping));
  return opened.ParseApkPackage() && opened.VerifyApkPackage();
}

ByteVector TopDigest(const ByteVector& package, uint32_t algorithmId, int workers) {
  std::vector<RawData> chunks;
  for (size_t start = 0; start < package.size(); start += kChunk) {
    chunks.push_back({package.data() + start, std::min(kChunk, package.size() - start)});
  }
  processors = workers + 1;
  ProcessHashes hashes(chunks);
  std::unique_ptr<Hash> hash = CreateHash(algorithmId);
  Require(hashes.Run(hash), "chunks have a digest");
  return hashes.TopDigest();
}

}  // namespace

// What std::thread::hardware_concurrency asks; this stands before the C library's.
extern "C" __attribute__((visibility("default"))) int get_nprocs() noexcept { return processors; }

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Recipe recipe{};
  std::copy_n(data, std::min(size, sizeof recipe), reinterpret_cast<uint8_t*>(&recipe));
  const LogCapture log;
  SignerOptions signer;
  signer.key = &((recipe.choices & 1) != 0 ? FixedKeys().back() : FixedKeys().front());
  const bool isSha512 = (recipe.choices & 2) != 0;
  const uint32_t kind = signer.key->algorithmId & 0xff00;
  const uint32_t algorithmId = kind + (kind == 0x0100 ? (isSha512 ? 4 : 3) : (isSha512 ? 2 : 1));
  signer.signatureAlgorithms = {algorithmId};
  PackageBuilder builder;
  builder.Archive(Archive(recipe)).Comment(ByteVector(recipe.comment));
  ByteVector package =
      ((recipe.choices & 4) != 0 ? builder.V3({signer}) : builder.V2({signer})).Build();

  const int workers = 1 + recipe.workers % 7;
  Require(TopDigest(package, algorithmId, 1) == TopDigest(package, algorithmId, workers),
          "several workers find the digest of one");
  processors = workers + 1;
  Require(IsVerified(package), "a large package verifies");
  uint32_t flip;
  std::memcpy(&flip, recipe.flip, sizeof flip);
  const size_t signedSize = SizeOf(recipe.entryChunks % 6, recipe.entryRest);
  if (signedSize == 0) return 0;
  package[flip % signedSize] ^= static_cast<uint8_t>(1U << flip % 8);
  Require(!IsVerified(package), "a large package that changed is refused");
  return 0;
}
