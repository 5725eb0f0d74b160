// SPDX-License-Identifier: Apache-2.0

#include "signing_block/process_hashes.h"

#include <algorithm>
#include <chrono>
#include <deque>
#include <exception>
#include <thread>

#include "signing_block/page_window.h"

namespace Quill {
namespace {

constexpr uint8_t kChunkPrefix = 0xa5;
constexpr uint8_t kTopPrefix = 0x5a;

// All windows together span this many chunks of at most 1 MiB ahead of the workers, but each at
// least two. With those behind the workers, about 35 MiB are in memory at the most.
constexpr size_t kMostChunksAhead = 16;
// A fast worker digests a chunk in 0.4 ms, so in a pause it passes about two thirds of its window.
// Shorter pauses cost more processor time.
constexpr std::chrono::microseconds kPausePerChunk{250};

void Begin(Hash& hash, uint8_t prefix, uint32_t count) {
  hash.Init();
  hash.Update(&prefix, sizeof prefix);
  hash.Update(&count, sizeof count);
}

// Moves the windows along with their workers until all chunks have been mapped.
void Advance(std::deque<PageWindow>& windows, std::chrono::microseconds pause) {
  for (bool isAtEnd = false; !isAtEnd;) {
    bool hasMoved = false;
    isAtEnd = true;
    for (PageWindow& window : windows) {
      hasMoved |= window.Advance();
      isAtEnd &= window.IsAtEnd();
    }
    if (!hasMoved && !isAtEnd) std::this_thread::sleep_for(pause);
  }
}

// Threads that are joined in the order of their start, at the latest when the scope ends. Join
// throws again what one of them has thrown.
class JoinedThreads {
 public:
  // Reserves room for `count` threads first: if emplace_back threw after a start, that thread would
  // never be joined.
  explicit JoinedThreads(size_t count) : errors_(count) { threads_.reserve(count); }
  JoinedThreads(const JoinedThreads&) = delete;
  JoinedThreads& operator=(const JoinedThreads&) = delete;
  ~JoinedThreads() { JoinAll(); }

  template <typename Work>
  void Start(Work work) {
    threads_.emplace_back([work, &error = errors_[threads_.size()]] {
      try {
        work();
      } catch (...) {
        error = std::current_exception();
      }
    });
  }
  // Joins all threads. Then throws what the first one that failed has thrown.
  void Join() {
    JoinAll();
    for (const std::exception_ptr& error : errors_) {
      if (error) std::rethrow_exception(error);
    }
  }

 private:
  void JoinAll() {
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
  }

  std::vector<std::exception_ptr> errors_;
  std::vector<std::thread> threads_;
};

// Lets the window pass by the chunks of a worker that has ended, even by an exception.
class WorkerEnd {
 public:
  explicit WorkerEnd(PageWindow& window) : window_(window) {}
  WorkerEnd(const WorkerEnd&) = delete;
  WorkerEnd& operator=(const WorkerEnd&) = delete;
  ~WorkerEnd() { window_.End(); }

 private:
  PageWindow& window_;
};

}  // namespace

unsigned int ProcessHashes::GetNumThreads() {
  constexpr unsigned int kMost = 7;
  const unsigned int hardwareThreads = std::thread::hardware_concurrency();
  return hardwareThreads < 2 ? 1 : std::min(hardwareThreads - 1, kMost);
}

bool ProcessHashes::Run(std::unique_ptr<Hash>& hash) {
  topDigest_.clear();
  if (chunks_.empty()) return false;

  const size_t workerCount = std::min<size_t>(chunks_.size(), GetNumThreads());
  const size_t chunksPerWorker = chunks_.size() / workerCount;
  std::vector<std::vector<RawData>> chunkLists(workerCount);
  std::vector<std::unique_ptr<Hash>> hashes(workerCount);
  std::vector<Digests> digestLists(workerCount);
  const size_t span = std::max<size_t>(kMostChunksAhead / workerCount, 2);
  std::deque<PageWindow> windows;
  {
    JoinedThreads workers(workerCount);
    for (size_t i = 0; i < workerCount; ++i) {
      const auto first = chunks_.begin() + static_cast<ptrdiff_t>(i * chunksPerWorker);
      const bool last = i + 1 == workerCount;
      const auto end = last ? chunks_.end() : first + static_cast<ptrdiff_t>(chunksPerWorker);
      const auto count = static_cast<size_t>(end - first);
      if (workerCount > 1) chunkLists[i].assign(first, end);  // a single worker uses the whole list
      digestLists[i].reserve(count);
      windows.emplace_back(&*first, count, span, pages_);
      hashes[i] = hash->Clone();
      if (!hashes[i]) return false;
      workers.Start([&chunks = workerCount > 1 ? chunkLists[i] : chunks_, &clone = hashes[i],
                     &digests = digestLists[i], &window = windows[i]] {
        const WorkerEnd atEnd(window);
        DoCalcChunkHashes(chunks, clone, digests, &window);
      });
    }
    // This thread would only wait, and GetNumThreads leaves a hardware thread for it.
    Advance(windows, span * kPausePerChunk);
    workers.Join();
  }
  for (PageWindow& window : windows) window.GiveBackPassed();
  JoinedThreads final(1);
  final.Start([&] { DoCalcTopHash(hash, digestLists, topDigest_); });
  final.Join();
  return true;
}

std::vector<uint8_t> ProcessHashes::CalcChunkHash(const uint8_t* data, unsigned int length,
                                                  std::unique_ptr<Hash>& hash) {
  Begin(*hash, kChunkPrefix, length);
  hash->Update(data, length);
  return hash->Final();
}

void ProcessHashes::DoCalcChunkHashes(const std::vector<RawData>& chunks,
                                      std::unique_ptr<Hash>& hash, Digests& out,
                                      PageWindow* window) {
  for (const RawData& chunk : chunks) {
    out.push_back(CalcChunkHash(chunk.data, static_cast<unsigned int>(chunk.length), hash));
    if (window != nullptr) window->PassChunk();
  }
}

std::vector<uint8_t> ProcessHashes::CalcTopHash(const std::vector<Digests>& digestsPerWorker,
                                                std::unique_ptr<Hash>& hash) {
  uint32_t count = 0;
  for (const Digests& digests : digestsPerWorker) count += static_cast<uint32_t>(digests.size());
  Begin(*hash, kTopPrefix, count);
  for (const Digests& digests : digestsPerWorker) {
    for (const std::vector<uint8_t>& digest : digests) hash->Update(digest);
  }
  return hash->Final();
}

void ProcessHashes::DoCalcTopHash(std::unique_ptr<Hash>& hash,
                                  const std::vector<Digests>& digestsPerWorker,
                                  std::vector<uint8_t>& out) {
  out = CalcTopHash(digestsPerWorker, hash);
}

}  // namespace Quill
