// SPDX-License-Identifier: Apache-2.0

#include "cli/lost_pages.h"

#include <link.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <vector>

namespace Quill::Tool {
namespace {

struct AddressRange {
  uintptr_t begin;
  uintptr_t end;
};

// What the handler reads; all but the count is written before the handler is set.
std::vector<AddressRange> programRanges;
uintptr_t pageSize;
struct sigaction previousAction;
std::atomic<uint64_t> lostPageCount = 0;
static_assert(std::atomic<uint64_t>::is_always_lock_free);

int AddRanges(dl_phdr_info* object, size_t /*size*/, void* /*context*/) {
  for (int i = 0; i < object->dlpi_phnum; ++i) {
    const auto& segment = object->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD) continue;
    const uintptr_t begin = object->dlpi_addr + segment.p_vaddr;
    programRanges.push_back({begin, begin + segment.p_memsz});
  }
  return 0;
}

// True when the page at `address` is of a mapped file, not of the program, and now reads as zeros.
// Only what a signal handler may do: a system call and no more, without what a sanitizer has put in
// front of mmap, which takes it for a write that races with the other readers of the page.
bool ReplaceLostPage(uintptr_t address) {
  const uintptr_t page = address / pageSize * pageSize;
  if (std::any_of(programRanges.begin(), programRanges.end(), [page](const AddressRange& range) {
        return range.begin < page + pageSize && page < range.end;
      })) {
    return false;
  }
  // Counted first, so that nobody has read zeros while the count is still the old one.
  ++lostPageCount;
  return syscall(SYS_mmap, page, pageSize, long{PROT_READ},
                 long{MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED}, -1L, 0L) != -1;
}

void HandleBusError(int signal, siginfo_t* info, void* /*context*/) {
  const int savedErrno = errno;
  // BUS_ADRERR: there is a mapping, and no page for it.
  if (info->si_code != BUS_ADRERR || !ReplaceLostPage(reinterpret_cast<uintptr_t>(info->si_addr))) {
    sigaction(SIGBUS, &previousAction, nullptr);
    // An access is repeated on return and meets the previous action; no other signal is.
    if (info->si_code != BUS_ADRALN && info->si_code != BUS_ADRERR) raise(signal);
  }
  errno = savedErrno;
}

}  // namespace

void SurviveLostPages() {
  pageSize = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  dl_iterate_phdr(AddRanges, nullptr);
  struct sigaction action = {};
  action.sa_sigaction = HandleBusError;
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGBUS, &action, &previousAction);
}

uint64_t LostPageCount() { return lostPageCount; }

}  // namespace Quill::Tool
