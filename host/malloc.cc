// SPDX-License-Identifier: Apache-2.0

#include <cstddef>
#include <new>

// Replaces malloc in a program that links this file: like operator new, it calls the new-handler
// when memory runs out. So a program that ends in its handler never sees a C library take lack of
// memory for bad data. The blocks are those of the GNU C library.

// NOLINTBEGIN(bugprone-reserved-identifier): names of the C library
extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

static void* Checked(void* block) {
  const std::new_handler handler = std::get_new_handler();
  if (block == nullptr && handler != nullptr) handler();
  return block;
}

#define VISIBLE __attribute__((visibility("default")))
VISIBLE void* malloc(size_t size) noexcept { return Checked(__libc_malloc(size)); }
VISIBLE void* calloc(size_t count, size_t size) noexcept {
  return Checked(__libc_calloc(count, size));
}
VISIBLE void* realloc(void* block, size_t size) noexcept {
  void* moved = __libc_realloc(block, size);
  return size == 0 ? moved : Checked(moved);  // size 0 frees the block
}
}
// NOLINTEND(bugprone-reserved-identifier)
