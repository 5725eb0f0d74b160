// SPDX-License-Identifier: Apache-2.0

#include "signing_block/process_hashes.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <atomic>
#include <new>
#include <system_error>

#include "tests/support/signers.h"

namespace {

std::atomic<int> hardwareThreads{0};  // 0: as many as the machine has

}  // namespace

// What std::thread::hardware_concurrency asks; this stands before the C library's.
extern "C" __attribute__((visibility("default"))) int get_nprocs() noexcept {
  const int count = hardwareThreads;
  return count != 0 ? count : static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
}

namespace Quill {
namespace {

std::vector<RawData> Chunks(const Regions& regions) {
  std::vector<RawData> chunks;
  for (const ByteVector& region : regions) chunks.push_back({region.data(), region.size()});
  return chunks;
}

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

// Has no memory for a digest, from the given one on.
class ShortHash : public HashSHA256 {
 public:
  explicit ShortHash(int digests) : digests_(digests) {}
  std::unique_ptr<Hash> Clone() override {
    return std::make_unique<ShortHash>(clones_++ == worker ? digests_ : 1000);
  }
  std::vector<uint8_t> Final() override {
    if (digests_-- == 0) throw std::bad_alloc();
    return HashSHA256::Final();
  }
  int worker = -1;

 private:
  int digests_;
  int clones_ = 0;
};

TEST(ProcessHashes, MemoryThatRunsOutOnAThreadIsTheCallersError) {
  const Regions regions(9);
  hardwareThreads = 4;
  const std::vector<RawData> chunks = Chunks(regions);
  ProcessHashes engine(chunks);
  for (int worker = -1; worker < 3; ++worker) {  // -1: the top digest's thread
    for (int digests = 0; digests < (worker == -1 ? 1 : 3); ++digests) {
      auto shortHash = std::make_unique<ShortHash>(digests);
      shortHash->worker = worker;
      std::unique_ptr<Hash> hash = std::move(shortHash);
      EXPECT_THROW(static_cast<void>(engine.Run(hash)), std::bad_alloc)
          << worker << ", " << digests;
      EXPECT_TRUE(engine.TopDigest().empty());
    }
  }
  hardwareThreads = 0;
}

#ifdef __GLIBC__
// Makes every later start of a thread fail: no address space holds its stack.
void RefuseThreads() {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, size_t{1} << 50);
  pthread_setattr_default_np(&attributes);
  pthread_attr_destroy(&attributes);
}

// Refuses further threads when it is cloned for the third time.
class LastHash : public HashSHA256 {
 public:
  std::unique_ptr<Hash> Clone() override {
    if (++clones_ == 3) RefuseThreads();
    return HashSHA256::Clone();
  }

 private:
  int clones_ = 0;
};

// A thread that was started and not joined would end the process.
TEST(ProcessHashes, NoThreadOutlivesOneThatCannotBeStarted) {
  const Regions regions(6);
  hardwareThreads = 4;
  pthread_attr_t usual;
  ASSERT_EQ(0, pthread_getattr_default_np(&usual));
  std::unique_ptr<Hash> hash = std::make_unique<LastHash>();
  EXPECT_THROW(static_cast<void>(ProcessHashes(Chunks(regions)).Run(hash)), std::system_error);
  pthread_setattr_default_np(&usual);
  pthread_attr_destroy(&usual);
  hardwareThreads = 0;
}
#endif  // __GLIBC__

}  // namespace
}  // namespace Quill
