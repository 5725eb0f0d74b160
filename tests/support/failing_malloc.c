// SPDX-License-Identifier: Apache-2.0

// Preloaded before the tool: in its children, the allocation with the number $FAILING_ALLOCATION
// fails, counted from 1.

#include <dlfcn.h>
#include <pthread.h>
#include <stdlib.h>

static long left = 0;

static void CountInChild(void) {
  const char* number = getenv("FAILING_ALLOCATION");
  if (number != NULL) left = strtol(number, NULL, 10);
}

__attribute__((constructor)) static void Start(void) { pthread_atfork(NULL, NULL, CountInChild); }

static int Fails(void) {
  return __atomic_load_n(&left, __ATOMIC_RELAXED) > 0 &&
         __atomic_sub_fetch(&left, 1, __ATOMIC_RELAXED) == 0;
}

// The names that glibc gives its own functions.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
void* __libc_malloc(size_t size) {
  static void* (*next)(size_t);
  if (next == NULL) next = (void* (*)(size_t))dlsym(RTLD_NEXT, "__libc_malloc");
  return Fails() ? NULL : next(size);
}
// NOLINTNEXTLINE(bugprone-reserved-identifier)
void* __libc_calloc(size_t count, size_t size) {
  static void* (*next)(size_t, size_t);
  if (next == NULL) next = (void* (*)(size_t, size_t))dlsym(RTLD_NEXT, "__libc_calloc");
  return Fails() ? NULL : next(count, size);
}
