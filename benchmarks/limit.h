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

// What no verification can beat: BoringSSL's digest alone over the bytes, in pieces of 1 MiB that
// `threads` threads share, or fewer when there are fewer pieces.
void DigestAlone(const EVP_MD* md, const MapFile& bytes, unsigned int threads);

// Times `work`, which digests `bytes` with `threads` threads, and the limit in turn, so that both
// see the same moments of a noisy machine. Reports the medians' throughput, and as `of_limit` the
// median of the single ratios; as `of_limit_cpu` that of processor time, which other programs on
// the machine disturb less. The benchmark is to be registered with UseManualTime.
template <typename Work>
void RunAgainstLimit(benchmark::State& state, const EVP_MD* md, const MapFile& bytes,
                     unsigned int threads, Work work) {
  DigestAlone(md, bytes, threads);  // has the pages at hand
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
