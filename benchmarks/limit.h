// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <benchmark/benchmark.h>
#include <openssl/digest.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <utility>
#include <vector>

#include <quillon/file.h>

namespace Quill {

struct Cost {
  double seconds;
  double processorSeconds;  // of all threads
};

template <typename Work>
Cost CostOf(Work&& work) {
  const auto start = std::chrono::steady_clock::now();
  const std::clock_t processorStart = std::clock();
  std::forward<Work>(work)();
  const std::clock_t processorEnd = std::clock();
  return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
          static_cast<double>(processorEnd - processorStart) / CLOCKS_PER_SEC};
}

double Median(std::vector<double> values);

// Digests the bytes by BoringSSL alone: the limit, which no verification can beat. `threads`
// threads share pieces of 1 MiB; there are fewer threads if there are fewer pieces.
void DigestAlone(const EVP_MD* md, const MapFile& bytes, unsigned int threads);

// Times `work`, which digests `bytes` with `threads` threads. Alternates with the limit, so that
// noise of the machine affects both. Reports the median throughput of both, and the median ratio of
// elapsed times as `of_limit` and of processor times as `of_limit_cpu`; other programs disturb
// processor time less. Register the benchmark with UseManualTime.
template <typename Work>
void RunAgainstLimit(benchmark::State& state, const EVP_MD* md, const MapFile& bytes,
                     unsigned int threads, Work work) {
  DigestAlone(md, bytes, threads);  // maps the pages
  std::vector<double> own, limit, ratios, processorRatios;
  for ([[maybe_unused]] auto turn : state) {
    const auto digestAlone = [&] { DigestAlone(md, bytes, threads); };
    const bool limitFirst = limit.size() % 2 == 0;
    Cost limitCost = limitFirst ? CostOf(digestAlone) : Cost();
    const Cost ownCost = CostOf(work);
    if (!limitFirst) limitCost = CostOf(digestAlone);
    limit.push_back(limitCost.seconds);
    own.push_back(ownCost.seconds);
    ratios.push_back(limitCost.seconds / ownCost.seconds);
    processorRatios.push_back(limitCost.processorSeconds / ownCost.processorSeconds);
    state.SetIterationTime(ownCost.seconds);
  }
  const auto size = static_cast<double>(bytes.Size());
  state.counters["bytes/s"] = {size / Median(own), {}, benchmark::Counter::kIs1024};
  state.counters["limit"] = {size / Median(limit), {}, benchmark::Counter::kIs1024};
  state.counters["of_limit"] = Median(ratios);
  state.counters["of_limit_cpu"] = Median(processorRatios);
}

}  // namespace Quill
