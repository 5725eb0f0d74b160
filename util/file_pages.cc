// SPDX-License-Identifier: Apache-2.0

#include "util/file_pages.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "util/errno_keeper.h"

namespace Quill {
namespace {

void Advise(const uint8_t* begin, uint64_t length, int advice) {
  const SavedErrno savedErrno;
  madvise(const_cast<uint8_t*>(begin), length, advice);  // advice may be ignored
}

}  // namespace

FilePages::FilePages(const MapFile& mapping)
    : begin_(mapping.Data()), end_(begin_ + mapping.Size()) {
  Advise(begin_, mapping.Size(), MADV_SEQUENTIAL);
}

void FilePages::GiveBack(const uint8_t* begin, const uint8_t* end) const {
  static const auto kPage = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  const uint8_t* const first = std::max(begin, begin_, std::less<>());
  const uint8_t* const behind = std::min(end, end_, std::less<>());
  if (std::less_equal<>()(behind, first)) return;
  // A mapping starts with a page.
  const uint64_t firstPage = (static_cast<uint64_t>(first - begin_) + kPage - 1) / kPage * kPage;
  const uint64_t behindPages = static_cast<uint64_t>(behind - begin_) / kPage * kPage;
  if (firstPage < behindPages) {
    Advise(begin_ + firstPage, behindPages - firstPage, MADV_DONTNEED);
  }
}

}  // namespace Quill
