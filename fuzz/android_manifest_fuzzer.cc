// The library that reads compiled manifests is not instrumented, so the vectors that hold a
// manifest end where a page starts that cannot be touched.

#include <androidfw/ResourceTypes.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "apk/apk.h"
#include "fuzz/fuzzing.h"
#include "tests/support/log_capture.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"

using Quill::ByteVector;
using Quill::Random;

namespace {

constexpr size_t kMostBytes = 1 << 16;

// Room for one allocation.
struct Room {
  uint8_t* end = nullptr;
  void* taken = nullptr;
};

Room rooms[8];

// The manifest's size while it is parsed, else 0.
size_t manifestSize = 0;

// How much of an allocation holds a manifest; 0 when it is not one for a manifest. The scan makes
// its vector longer by a record, and vectors then grow to twice their size.
size_t BytesInUse(size_t size) {
  constexpr size_t kBehind = sizeof(android::ResXMLTree_attribute);
  if (manifestSize == 0) return 0;
  if (size == manifestSize) return size;
  const size_t longer = manifestSize + kBehind;
  return size == std::max(longer, 2 * manifestSize) ? longer : 0;
}

void* Allocate(size_t size) {
  if (const size_t used = BytesInUse(size)) {
    for (Room& room : rooms) {
      if (room.taken == nullptr) return room.taken = room.end - (used + 3) / 4 * 4;  // aligned
    }
  }
  return std::malloc(size);
}

bool MakeRooms() {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t size = kMostBytes + page;
  for (Room& room : rooms) {
    void* start =
        mmap(nullptr, size + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (start == MAP_FAILED) return false;
    room.end = static_cast<uint8_t*>(start) + size;
    if (mprotect(room.end, page, PROT_NONE) != 0) return false;
  }
  return true;
}

}  // namespace

void* operator new(size_t size) {
  void* block = Allocate(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept { return Allocate(size); }

void operator delete(void* block) noexcept {
  for (Room& room : rooms) {
    if (block == nullptr || block != room.taken) continue;
    room.taken = nullptr;
    return;
  }
  std::free(block);
}

void operator delete(void* block, size_t /*size*/) noexcept { operator delete(block); }

void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept {
  operator delete(block);
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool areRoomsMade = MakeRooms();
  Quill::Require(areRoomsMade, "there is memory");
  if (size == 0 || size > kMostBytes) return 0;

  Quill::LogCapture log;
  const Quill::Fd file =
      Quill::MemoryFile(Quill::PackageBuilder().Manifest({data, data + size}).Build());
  manifestSize = size;
  Quill::Apk apk(file.GetFd());
  manifestSize = 0;
  Quill::Require(apk.IsApk(), "the manifest is there");
  Quill::Require(!apk.IsGoodApk(), "a package without a signature is not good");
  Quill::Require(apk.GetPackageName().size() <= 2 * size, "the name comes from the manifest");
  return 0;
}

namespace {

constexpr size_t kDocumentHeaderSize = 8;
constexpr size_t kChunkHeaderSize = 8;  // 16-bit type, 16-bit header size, 32-bit size

// The chunks inside the document, the last one with all that follows.
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

// Overwrites a 16-bit field among the chunk's fixed ones, most often with a number near a limit.
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
