// SPDX-License-Identifier: Apache-2.0

#include "signing_block/page_window.h"

#include <algorithm>
#include <cstdint>

namespace Quill {
namespace {

// Faults the pages of a chunk in. On a fault the kernel maps the cached pages around it too, within
// 64 KiB unless it is configured otherwise. The worker takes the faults that are left.
void MapPages(const RawData& chunk) {
  constexpr uint64_t kMappedAtOnce = 64 << 10;
  for (uint64_t offset = 0; offset < chunk.length; offset += kMappedAtOnce) {
    static_cast<void>(*static_cast<const volatile uint8_t*>(chunk.data + offset));
  }
}

}  // namespace

void PageWindow::PassChunk() {
  const RawData& chunk = chunks_[passed_++];
  if (++behind_ > span_) pages_.GiveBack(chunk.data, chunk.data + chunk.length);
}

void PageWindow::End() {
  behind_ += count_ - passed_;
  passed_ = count_;
}

bool PageWindow::Advance() {
  GiveBackPassed();
  mapped_ = std::max(mapped_, givenBack_);
  if (mapped_ == std::min(count_, givenBack_ + span_)) return false;
  MapPages(chunks_[mapped_++]);
  return true;
}

void PageWindow::GiveBackPassed() {
  const size_t behind = behind_;
  if (behind == 0) return;
  const size_t passed = givenBack_ + behind;
  // The last page of a chunk can hold the start of the next one and is then still in use. So each
  // call begins one chunk earlier than the last one ended.
  size_t next = givenBack_ - std::min<size_t>(givenBack_, 1);
  while (next < passed) {
    const uint8_t* const begin = chunks_[next].data;
    const uint8_t* end = begin;
    for (; next < passed && chunks_[next].data == end; ++next) end += chunks_[next].length;
    pages_.GiveBack(begin, end);
  }
  givenBack_ = passed;
  behind_ -= behind;
}

}  // namespace Quill
