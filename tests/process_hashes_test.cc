// SPDX-License-Identifier: Apache-2.0

#include "signing_block/process_hashes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/sysinfo.h>

#include <algorithm>
#include <atomic>
#include <functional>

#include "tests/support/signers.h"
#include "tests/support/temp_file.h"

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

// Returns how many bytes of the mapping are in memory, to the page.
uint64_t Resident(const MapFile& mapping) {
  static const auto kPage = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  std::vector<uint64_t> entries(mapping.Size() / kPage);
  const Fd pagemap(open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC));
  EXPECT_LT(0, pread(pagemap.GetFd(), entries.data(), entries.size() * sizeof entries[0],
                     reinterpret_cast<off_t>(mapping.Data()) / static_cast<off_t>(kPage) * 8));
  return kPage * static_cast<uint64_t>(std::count_if(entries.begin(), entries.end(),
                                                     [](uint64_t entry) { return entry >> 63; }));
}

// Calls a function behind each piece that a worker digests.
struct WatchedHash : HashSHA256 {
  explicit WatchedHash(std::function<void()> watch) : watch_(std::move(watch)) {}
  int Update(const void* data, size_t length) override {
    if (length > sizeof(uint32_t)) watch_();
    return HashSHA256::Update(data, length);
  }
  std::unique_ptr<Hash> Clone() override { return std::make_unique<WatchedHash>(*this); }
  std::function<void()> watch_;
};

// Every eighth chunk is a private copy, which must keep its bytes.
TEST(ProcessHashes, GivesBackNothingButWhatItHasDigestedOfTheFile) {
  constexpr size_t kMebibyte = 1 << 20;
  ByteVector bytes(64 * kMebibyte);
  for (size_t i = 0; i < bytes.size(); i += 64) bytes[i] = static_cast<uint8_t>(i >> 12 ^ i >> 6);
  for (const size_t length : {kMebibyte, kMebibyte - 4095, size_t{300001}}) {
    const Regions copies(1, bytes);
    std::vector<RawData> plain, chunks;
    const auto mapping = MapFileRO(MemoryFile(bytes).GetFd());
    for (size_t offset = 0; offset < bytes.size(); offset += length) {
      const size_t size = std::min(length, bytes.size() - offset);
      const bool isCopy = chunks.size() % 8 == 7;
      plain.push_back({bytes.data() + offset, size});
      chunks.push_back({(isCopy ? copies[0].data() : mapping->Data()) + offset, size});
    }
    std::unique_ptr<Hash> hash = std::make_unique<HashSHA256>();
    ProcessHashes expected(plain);
    ASSERT_TRUE(expected.Run(hash));
    for (const int threads : {2, 3, 6, 8}) {
      hardwareThreads = threads;
      std::atomic<uint64_t> peak{0};
      hash =
          std::make_unique<WatchedHash>([&] { peak = std::max(peak.load(), Resident(*mapping)); });
      ProcessHashes engine(chunks, FilePages(*mapping));
      ASSERT_TRUE(engine.Run(hash));
      EXPECT_EQ(expected.TopDigest(), engine.TopDigest()) << length << ", " << threads;
      EXPECT_GT(36 * kMebibyte, peak);
      // What stays is next to the copies and between workers: the kernel maps pages around a fault.
      EXPECT_GT((chunks.size() / 8 + 9) * (128 << 10), Resident(*mapping));
    }
    EXPECT_EQ(bytes, copies[0]);
  }
  hardwareThreads = 0;
}

TEST(ProcessHashes, AWorkerThatFailsEndsTheRun) {
  const Regions regions(200, ByteVector(5));
  const std::vector<RawData> chunks = Chunks(regions);
  for (const int failing : {1, 2, 100, 200}) {
    std::atomic<int> count{0};
    std::unique_ptr<Hash> hash = std::make_unique<WatchedHash>([&] {
      if (++count == failing) throw std::bad_alloc();
    });
    EXPECT_THROW(static_cast<void>(ProcessHashes(chunks).Run(hash)), std::bad_alloc) << failing;
  }
}

}  // namespace
}  // namespace Quill
