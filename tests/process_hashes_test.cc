#include "signing_block/process_hashes.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <system_error>
#include <thread>

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

class HardwareThreads {
 public:
  explicit HardwareThreads(int count) { hardwareThreads = count; }
  ~HardwareThreads() { hardwareThreads = 0; }
};

std::vector<RawData> Chunks(const Regions& regions) {
  std::vector<RawData> chunks;
  for (const ByteVector& region : regions) chunks.push_back({region.data(), region.size()});
  return chunks;
}

TEST(ProcessHashes, LeavesOneHardwareThreadAndTakesAtMostSeven) {
  const struct {
    int hardware;
    unsigned int workers;
  } kCases[] = {{1, 1}, {2, 1}, {3, 2}, {7, 6}, {8, 7}, {9, 7}, {64, 7}};
  for (const auto& c : kCases) {
    const HardwareThreads set(c.hardware);
    EXPECT_EQ(c.workers, ProcessHashes::GetNumThreads()) << c.hardware;
  }
}

// printf '\xa5\x03\0\0\0abc' | sha256sum, and so on; then the digests behind printf
// '\x5a\x03\0\0\0'.
TEST(ProcessHashes, DigestsHaveTheirPrefixes) {
  std::unique_ptr<Hash> hash = std::make_unique<HashSHA256>();
  const ByteVector mebibyte(1 << 20);
  EXPECT_EQ("67c8625d4d223b4455ecab495946c809bf3feb06f244566eb6c0cfc18bf39379",
            Hex(ProcessHashes::CalcChunkHash(mebibyte.data(), 1 << 20, hash)));
  const Regions regions = {{'a', 'b', 'c'}, {'d'}, {}};
  std::vector<RawData> chunks = Chunks(regions);
  ProcessHashes engine(chunks);
  EXPECT_TRUE(engine.Run(hash));
  EXPECT_EQ("dab9c103537eab3d423a6bac5b496ae54f87149d6f6f93787fb03e6d27af49e7",
            Hex(engine.TopDigest()));
  chunks.clear();
  EXPECT_FALSE(engine.Run(hash));
  EXPECT_EQ(ByteVector(), engine.TopDigest());
}

TEST(ProcessHashes, EveryNumberOfWorkersGivesTheDigestOfOne) {
  const size_t kCounts[] = {0, 1, 2, 7, 8, 10, 1000};
  for (size_t count : kCounts) {
    Regions regions;
    for (size_t i = 0; i < count; ++i) regions.emplace_back(1 + i % 50, static_cast<uint8_t>(i));
    const std::vector<RawData> chunks = Chunks(regions);
    for (int workers = 1; workers <= 7; ++workers) {
      SCOPED_TRACE(testing::Message() << count << " chunks, " << workers << " workers");
      const HardwareThreads set(workers + 1);
      ProcessHashes engine(chunks);
      std::unique_ptr<Hash> hash = std::make_unique<HashSHA512>();
      EXPECT_EQ(count != 0, engine.Run(hash));
      EXPECT_EQ(count != 0 ? ContentDigest(0x0202, regions) : ByteVector(), engine.TopDigest());
    }
  }
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

// What the digest objects of one run share.
struct Progress {
  const int clonesUntilRefusal;
  const int chunksUntilRefusal;
  std::atomic<int> clones{0};
  std::atomic<int> chunks{0};
};

// Takes its time over a chunk, and refuses further threads at a chosen point.
class SlowHash : public HashSHA256 {
 public:
  explicit SlowHash(Progress& progress) : progress_(progress) {}

  std::unique_ptr<Hash> Clone() override {
    if (++progress_.clones == progress_.clonesUntilRefusal) RefuseThreads();
    return std::make_unique<SlowHash>(progress_);
  }
  std::vector<uint8_t> Final() override {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (++progress_.chunks == progress_.chunksUntilRefusal) RefuseThreads();
    return HashSHA256::Final();
  }

 private:
  Progress& progress_;
};

TEST(ProcessHashes, NoThreadOutlivesOneThatCannotBeStarted) {
  const struct {
    const char* name;
    int clonesUntilRefusal;
    int chunksUntilRefusal;
    int chunksDone;
  } kCases[] = {
      {"the first worker", 1, 0, 0},
      {"the last of three workers", 3, 0, 4},
      {"the top digest's thread", 0, 6, 6},
  };
  const Regions regions(6);
  const std::vector<RawData> chunks = Chunks(regions);
  const HardwareThreads set(4);
  pthread_attr_t usual;
  ASSERT_EQ(0, pthread_getattr_default_np(&usual));
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    Progress progress{c.clonesUntilRefusal, c.chunksUntilRefusal};
    std::unique_ptr<Hash> hash = std::make_unique<SlowHash>(progress);
    ProcessHashes engine(chunks);
    EXPECT_THROW(engine.Run(hash), std::system_error);
    EXPECT_EQ(c.chunksDone, progress.chunks) << "a worker was still at it";
    EXPECT_EQ(ByteVector(), engine.TopDigest());
    pthread_setattr_default_np(&usual);
  }
  pthread_attr_destroy(&usual);
}
#endif  // __GLIBC__

}  // namespace
}  // namespace Quill
