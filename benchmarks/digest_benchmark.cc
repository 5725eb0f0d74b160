// SPDX-License-Identifier: Apache-2.0

// Times the content digest and its two stages, for several numbers of workers.
#include <thread>

#include "benchmarks/limit.h"
#include "signing_block/process_hashes.h"
#include "tests/support/temp_file.h"

namespace Quill {
namespace {

constexpr uint64_t kChunkSize = 1 << 20;

const EVP_MD* DigestAlgorithm(const benchmark::State& state) {
  return state.range(0) == 512 ? EVP_sha512() : EVP_sha256();
}

std::unique_ptr<Hash> NewHash(const benchmark::State& state) {
  return Hash::CreateHashFromAlgoId(EVP_MD_type(DigestAlgorithm(state)));
}

// The last chunk is shorter, as in most packages.
std::unique_ptr<MapFile> Content() {
  return MapFileRO(MemoryFile(ByteVector(64 * kChunkSize - 7, 0x5a)).GetFd());
}

std::vector<RawData> Chunks(const MapFile& content, uint64_t first, uint64_t end) {
  std::vector<RawData> chunks;
  for (uint64_t chunk = first; chunk < end; ++chunk) {
    const uint64_t offset = chunk * kChunkSize;
    chunks.push_back({content.Data() + offset, std::min(kChunkSize, content.Size() - offset)});
  }
  return chunks;
}

void ChunkDigests(benchmark::State& state) {
  const auto content = Content();
  const uint64_t count = (content->Size() + kChunkSize - 1) / kChunkSize;
  const auto workerCount = static_cast<unsigned int>(state.range(1));
  std::vector<std::vector<RawData>> chunks;
  for (unsigned int i = 0; i < workerCount; ++i) {
    chunks.push_back(Chunks(*content, count * i / workerCount, count * (i + 1) / workerCount));
  }
  RunAgainstLimit(state, DigestAlgorithm(state), *content, workerCount, [&] {
    std::vector<ProcessHashes::Digests> digests(workerCount);
    std::vector<std::thread> workers;
    for (unsigned int i = 0; i < workerCount; ++i) {
      workers.emplace_back([&, i] {
        auto hash = NewHash(state);
        ProcessHashes::DoCalcChunkHashes(chunks[i], hash, digests[i]);
      });
    }
    for (std::thread& worker : workers) worker.join();
  });
}
BENCHMARK(ChunkDigests)
    ->ArgNames({"sha", "workers"})
    ->ArgsProduct({{256, 512}, {1, 2, 4, 7}})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void TopDigest(benchmark::State& state) {
  constexpr size_t kChunks = 1024;
  auto hash = NewHash(state);
  const std::vector<ProcessHashes::Digests> digests(
      static_cast<size_t>(state.range(1)),
      ProcessHashes::Digests(kChunks / static_cast<size_t>(state.range(1)),
                             ByteVector(static_cast<size_t>(state.range(0) / 8))));
  for ([[maybe_unused]] auto turn : state) {
    benchmark::DoNotOptimize(ProcessHashes::CalcTopHash(digests, hash));
  }
}
BENCHMARK(TopDigest)
    ->ArgNames({"sha", "workers"})
    ->ArgsProduct({{256, 512}, {1, 7}})
    ->Unit(benchmark::kMicrosecond);

// Uses as many workers as the library does on this machine.
void ContentDigest(benchmark::State& state) {
  const auto content = Content();
  const std::vector<RawData> chunks =
      Chunks(*content, 0, (content->Size() + kChunkSize - 1) / kChunkSize);
  RunAgainstLimit(state, DigestAlgorithm(state), *content, ProcessHashes::GetNumThreads(), [&] {
    auto hash = NewHash(state);
    ProcessHashes digest(chunks);
    if (!digest.Run(hash)) state.SkipWithError("no digest");
  });
}
BENCHMARK(ContentDigest)
    ->ArgNames({"sha"})
    ->Arg(256)
    ->Arg(512)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace Quill
