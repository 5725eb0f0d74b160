// SPDX-License-Identifier: Apache-2.0

#include "fuzz/guarded_vectors.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <new>

#include "fuzz/fuzzing.h"

namespace Quill {
namespace {

// Pages for one guarded allocation, and an inaccessible page behind them.
struct Room {
  uint8_t* end = nullptr;
  void* taken = nullptr;
  size_t size = 0;  // bytes of the allocation in `taken`
};

Room rooms[8];
size_t guardedSize = 0;
size_t guardedBehind = 0;

bool MakeRooms() {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t size = kMostGuarded + page;
  for (Room& room : rooms) {
    void* start =
        mmap(nullptr, size + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (start == MAP_FAILED) return false;
    room.end = static_cast<uint8_t*>(start) + size;
    if (mprotect(room.end, page, PROT_NONE) != 0) return false;
  }
  return true;
}

bool IsGuarded(size_t size) {
  return std::any_of(std::begin(rooms), std::end(rooms), [size](const Room& room) {
    return room.taken != nullptr && room.size == size;
  });
}

// Returns how many bytes of an allocation a guarded vector uses; 0 for other allocations. A vector
// that grows still owns its old bytes, and allocates twice their number if that is enough.
size_t BytesInUse(size_t size) {
  if (guardedSize == 0) return 0;
  if (size == guardedSize) return size;
  const size_t longer = guardedSize + guardedBehind;
  const bool isGrown = IsGuarded(guardedSize) && size == std::max(longer, 2 * guardedSize);
  return isGrown ? longer : 0;
}

void* Allocate(size_t size) {
  if (const size_t used = BytesInUse(size)) {
    for (Room& room : rooms) {
      if (room.taken != nullptr) continue;
      room.size = used;
      return room.taken = room.end - (used + 3) / 4 * 4;  // aligned
    }
  }
  return std::malloc(size);
}

void Free(void* block) {
  for (Room& room : rooms) {
    if (block == nullptr || block != room.taken) continue;
    room.taken = nullptr;
    return;
  }
  std::free(block);
}

}  // namespace

void GuardVectors(size_t size, size_t behind) {
  static const bool areRoomsMade = MakeRooms();
  Require(areRoomsMade, "there is memory");
  guardedSize = size;
  guardedBehind = behind;
}

}  // namespace Quill

void* operator new(size_t size) {
  void* block = Quill::Allocate(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return Quill::Allocate(size);
}

void operator delete(void* block) noexcept { Quill::Free(block); }

void operator delete(void* block, size_t /*size*/) noexcept { Quill::Free(block); }

void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept { Quill::Free(block); }
