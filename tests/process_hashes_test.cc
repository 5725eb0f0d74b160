// SPDX-License-Identifier: Apache-2.0

#include "signing_block/process_hashes.h"

#include <gtest/gtest.h>
#include <sys/sysinfo.h>

#include <atomic>

#include "tests/support/signers.h"

namespace {

std::atomic<int> hardwareThreads{4};  // whatever the machine has

}  // namespace

// What std::thread::hardware_concurrency asks; this stands before the C library's.
extern "C" __attribute__((visibility("default"))) int get_nprocs() noexcept {
  return hardwareThreads;
}

namespace Quill {
namespace {

TEST(ProcessHashes, LeavesOneHardwareThreadAndTakesAtMostSeven) {
  const std::pair<int, unsigned> kWorkers[] = {{1, 1}, {2, 1}, {3, 2}, {8, 7}, {9, 7}};
  for (const auto& [hardware, workers] : kWorkers) {
    hardwareThreads = hardware;
    EXPECT_EQ(workers, ProcessHashes::GetNumThreads()) << hardware;
  }
}

TEST(ProcessHashes, EveryNumberOfWorkersGivesTheDigestOfOne) {
  for (const size_t count : {0u, 1u, 7u, 10u, 1000u}) {
    Regions regions;
    for (size_t i = 0; i < count; ++i) regions.emplace_back(1 + i % 50, static_cast<uint8_t>(i));
    const std::vector<RawData> chunks = Chunks(regions);
    for (int workers = 1; workers <= 7; ++workers) {
      hardwareThreads = workers + 1;
      ProcessHashes engine(chunks);
      std::unique_ptr<Hash> hash = std::make_unique<HashSHA512>();
      EXPECT_EQ(count != 0, engine.Run(hash));
      EXPECT_EQ(count != 0 ? ContentDigest(0x0202, regions) : ByteVector(), engine.TopDigest())
          << count << ", " << workers;
    }
  }
}

}  // namespace
}  // namespace Quill
