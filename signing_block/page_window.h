// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cstddef>

#include "signing_block/raw_data.h"
#include "util/file_pages.h"

namespace Quill {

// Keeps few pages of a worker's chunks in memory: those that the worker reads next, and some that
// it has passed. The caller's thread moves the window along: it takes the page faults ahead of the
// worker, and gives back what the worker has passed. The worker does without it when it is late.
class PageWindow {
 public:
  // `chunks` are the worker's, `count` of them; they are borrowed. At most `span` chunks ahead of
  // the worker are in memory, and as many behind it.
  PageWindow(const RawData* chunks, size_t count, size_t span, const FilePages& pages)
      : chunks_(chunks), count_(count), span_(span), pages_(pages) {}

  // For the worker.

  // Called when the next chunk has been digested. Gives it back if the caller's thread is late.
  void PassChunk();
  // Called when the worker reads no more, because it has passed all chunks or has failed.
  void End();

  // For the caller's thread.

  // Gives back what the worker has passed, and maps one chunk. Returns false when the worker has to
  // pass a chunk first, or when there are no more chunks to map.
  bool Advance();
  // Returns true when there are no more chunks to map.
  bool IsAtEnd() const { return mapped_ == count_; }
  // Gives back the chunks that the worker has passed.
  void GiveBackPassed();

 private:
  const RawData* chunks_;
  size_t count_;
  size_t span_;
  FilePages pages_;
  std::atomic<size_t> behind_{0};  // chunks that are passed and not given back by the caller
  size_t passed_ = 0;              // of the worker: chunks before this one are passed
  size_t givenBack_ = 0;           // of the caller: chunks before this one are given back
  size_t mapped_ = 0;              // of the caller: chunks before this one are mapped or passed
};

}  // namespace Quill
