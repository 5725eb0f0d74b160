// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "crypto/hash.h"
#include "signing_block/raw_data.h"

namespace Quill {

// The content digest of a package: every chunk is digested with a prefix, on several threads, and
// the digest over all chunk digests, in chunk order, is the top digest. Prefixes, integers
// little-endian:
//
//   chunk digest: 0xa5, 32-bit length of the chunk, the chunk's bytes
//   top digest:   0x5a, 32-bit number of chunks, their digests
//
// One object computes one digest. Nothing here logs.
class ProcessHashes {
 public:
  using Digests = std::vector<std::vector<uint8_t>>;

  // `chunks` is borrowed and must outlive the object.
  explicit ProcessHashes(const std::vector<RawData>& chunks) : chunks_(chunks) {}

  virtual ~ProcessHashes() = default;

  // Computes the top digest. `hash` names the algorithm: each worker digests with a clone of it,
  // the top digest is made with `hash` itself. Returns false when there are no chunks or a clone
  // cannot be allocated. Throws std::system_error when a thread cannot be started, and
  // std::bad_alloc when memory runs out here or on one of the threads. No thread outlives the call,
  // whichever way it ends. The calling thread has the kernel map the chunks' pages meanwhile.
  virtual bool Run(std::unique_ptr<Hash>& hash);

  // The result of the last successful Run, else empty.
  const std::vector<uint8_t>& TopDigest() const { return topDigest_; }

  // Worker threads that this machine warrants: its hardware threads but one, at least 1, at most 7.
  static unsigned int GetNumThreads();

  static std::vector<uint8_t> CalcChunkHash(const uint8_t* data, unsigned int length,
                                            std::unique_ptr<Hash>& hash);
  // A worker: appends the digest of every chunk, in order, to `out`.
  static void DoCalcChunkHashes(const std::vector<RawData>& chunks, std::unique_ptr<Hash>& hash,
                                Digests& out);
  // Digest over all chunk digests: worker by worker, each worker's in order.
  static std::vector<uint8_t> CalcTopHash(const std::vector<Digests>& digestsPerWorker,
                                          std::unique_ptr<Hash>& hash);
  // The last thread: replaces `out` with CalcTopHash's result.
  static void DoCalcTopHash(std::unique_ptr<Hash>& hash,
                            const std::vector<Digests>& digestsPerWorker,
                            std::vector<uint8_t>& out);

 private:
  std::vector<uint8_t> topDigest_;
  const std::vector<RawData>& chunks_;
};

}  // namespace Quill
