// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "crypto/hash.h"
#include "signing_block/raw_data.h"
#include "util/file_pages.h"

namespace Quill {

class PageWindow;

// Computes the content digest of a package. Several threads digest the chunks, each with a prefix.
// The top digest covers all chunk digests in chunk order, with a prefix of its own. Integers are
// little-endian:
//
//   chunk digest: 0xa5, 32-bit length of the chunk, the chunk's bytes
//   top digest:   0x5a, 32-bit number of chunks, their digests
//
// One object computes one digest. Nothing here logs.
class ProcessHashes {
 public:
  using Digests = std::vector<std::vector<uint8_t>>;

  // `chunks` is borrowed and must outlive the object. Run gives back those of `pages` that the
  // workers have passed; the chunks may lie anywhere.
  explicit ProcessHashes(const std::vector<RawData>& chunks, const FilePages& pages = {})
      : chunks_(chunks), pages_(pages) {}

  virtual ~ProcessHashes() = default;

  // Computes the top digest. `hash` chooses the algorithm: each worker uses a clone of it, and the
  // top digest is computed with `hash` itself. Returns false when there are no chunks or a clone
  // cannot be allocated. Throws std::system_error when a thread cannot be started, and
  // std::bad_alloc when memory runs out here or on one of the threads. All threads have ended when
  // this returns or throws. Meanwhile the calling thread keeps a window of each worker's chunks in
  // memory: it takes the page faults ahead, and gives back what the worker has passed.
  [[nodiscard]] virtual bool Run(std::unique_ptr<Hash>& hash);

  // Returns the result of the last Run; empty before one and after one that failed.
  const std::vector<uint8_t>& TopDigest() const { return topDigest_; }

  // Returns the number of worker threads: the hardware threads but one, at least 1, at most 7.
  [[nodiscard]] static unsigned int GetNumThreads();

  [[nodiscard]] static std::vector<uint8_t> CalcChunkHash(const uint8_t* data, unsigned int length,
                                                          std::unique_ptr<Hash>& hash);
  // Runs on a worker thread: appends the digest of every chunk, in order, to `out`. Reports
  // each to `window` if there is one.
  static void DoCalcChunkHashes(const std::vector<RawData>& chunks, std::unique_ptr<Hash>& hash,
                                Digests& out, PageWindow* window = nullptr);
  // Computes the digest over all chunk digests: worker by worker, those of each in order.
  [[nodiscard]] static std::vector<uint8_t> CalcTopHash(
      const std::vector<Digests>& digestsPerWorker, std::unique_ptr<Hash>& hash);
  // Runs on the last thread: replaces `out` with the result of CalcTopHash.
  static void DoCalcTopHash(std::unique_ptr<Hash>& hash,
                            const std::vector<Digests>& digestsPerWorker,
                            std::vector<uint8_t>& out);

 private:
  std::vector<uint8_t> topDigest_;
  const std::vector<RawData>& chunks_;
  FilePages pages_;
};

}  // namespace Quill
