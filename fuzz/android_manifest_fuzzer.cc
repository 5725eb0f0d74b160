// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>
#include <androidfw/ResourceTypes.h>

#include <algorithm>
#include <cstring>

#include <quillon/apk.h>

#include "fuzz/fuzzing.h"
#include "fuzz/guarded_vectors.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"

using Quill::ByteVector;
using Quill::Random;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || size > Quill::kMostGuarded) return 0;

  // Discards log lines: a kept line could have the size of a guarded vector.
  __android_log_set_logger([](const auto*, auto...) {});
  const Quill::Fd file =
      Quill::MemoryFile(Quill::PackageBuilder().Manifest({data, data + size}).Build());
  // The parser is not instrumented. The scan appends room for one record of the parser.
  Quill::GuardVectors(size, sizeof(android::ResXMLTree_attribute));
  Quill::Apk apk(file.GetFd());
  Quill::GuardVectors(0, 0);
  Quill::Require(apk.IsApk(), "the manifest is there");
  Quill::Require(!apk.IsGoodApk(), "a package without a signature is not good");
  Quill::Require(apk.GetPackageName().size() <= 2 * size, "the name comes from the manifest");
  return 0;
}

namespace {

constexpr size_t kDocumentHeaderSize = 8;
constexpr size_t kChunkHeaderSize = 8;  // 16-bit type, 16-bit header size, 32-bit size

// Returns the chunks of the document. The last one includes all bytes that follow.
std::vector<ByteVector> TakeChunks(const ByteVector& document) {
  std::vector<ByteVector> chunks;
  size_t offset = kDocumentHeaderSize;
  while (offset < document.size()) {
    const size_t left = document.size() - offset;
    uint32_t size = 0;
    if (left >= kChunkHeaderSize) std::memcpy(&size, &document[offset + 4], sizeof size);
    const size_t taken = size < kChunkHeaderSize || size > left ? left : size;
    const auto start = document.begin() + static_cast<ptrdiff_t>(offset);
    chunks.emplace_back(start, start + static_cast<ptrdiff_t>(taken));
    offset += taken;
  }
  return chunks;
}

// Overwrites one of the chunk's first 16-bit fields, usually with a number near a limit.
void ChangeField(ByteVector& chunk, Random& random) {
  constexpr size_t kFixedSize = 40;
  constexpr uint16_t kNumbers[] = {0, 1, 2, 7, 8, 16, 20, 28, 36, 0x7fff, 0x8000, 0xffff};
  const size_t fields = std::min(chunk.size(), kFixedSize) / 2;
  if (fields == 0) return;
  const uint16_t number =
      random.OneIn(4) ? static_cast<uint16_t>(random.Below(0x10000)) : random.OneOf(kNumbers);
  Quill::Put(chunk, 2 * random.Below(fields), Quill::Wire().U16(number));
}

}  // namespace

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
  Random random(seed);
  std::vector<ByteVector> chunks = TakeChunks({data, data + size});
  if (chunks.empty() || random.OneIn(4)) return LLVMFuzzerMutate(data, size, maxSize);
  const size_t chosen = random.Below(chunks.size());
  switch (random.Below(6)) {
    case 0:
      chunks.resize(chosen + 1);
      break;
    case 1:
      chunks.push_back(chunks[chosen]);
      break;
    case 2:
      std::swap(chunks[chosen], random.OneOf(chunks));
      break;
    case 3:
      Quill::MutateBytes(chunks[chosen]);
      if (chunks[chosen].size() >= kChunkHeaderSize) {
        Quill::Put(chunks[chosen], 4, Quill::Wire().U32(chunks[chosen].size()));
      }
      break;
    default:
      ChangeField(chunks[chosen], random);
      break;
  }
  Quill::Wire content;
  for (const ByteVector& chunk : chunks) content.Bytes(chunk);
  return Quill::PutMutated(
      Quill::Wire().U16(3).U16(8).U32(kDocumentHeaderSize + content.Size()).Bytes(content), data,
      size, maxSize);
}
