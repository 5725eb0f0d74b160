// SPDX-License-Identifier: Apache-2.0

#include <sys/mman.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

#include <quillon/apk.h>

#include "fuzz/fixed_keys.h"
#include "fuzz/fuzzing.h"
#include "signing_block/apk_package.h"
#include "tests/support/log_capture.h"
#include "tests/support/package_builder.h"
#include "tests/support/package_numbers.h"
#include "tests/support/temp_file.h"
#include "util/file_pages.h"

// Verifies packages while another thread changes the numbers in their signing blocks. Each time,
// the package must be refused or verified with its own key.

namespace Quill {
namespace {

constexpr auto kTimeForAPackage = std::chrono::seconds(2);
constexpr int kMostRounds = 20000;

// A number in the package, and the values that replace it for a time.
using Choice = std::pair<PackageNumber, std::vector<uint64_t>>;

// A file in memory. A thread changes two of its numbers to other values and back.
class ChangingFile {
 public:
  ChangingFile(const ByteVector& bytes, const std::vector<Choice>& choices)
      : size_(bytes.size()), file_(MemoryFile(bytes)) {
    void* view = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, file_.GetFd(), 0);
    Require(view != MAP_FAILED, "a file in memory can be mapped");
    view_ = static_cast<volatile uint8_t*>(view);
    writer_ = std::thread([this, choices] {
      Random random(1);
      while (!isDone_) ChangeTwo(random.OneOf(choices), random.OneOf(choices), random);
    });
  }
  ChangingFile(const ChangingFile&) = delete;
  ChangingFile& operator=(const ChangingFile&) = delete;
  ~ChangingFile() {
    isDone_ = true;
    writer_.join();
    munmap(const_cast<uint8_t*>(view_), size_);
  }

  int GetFd() const { return file_.GetFd(); }

 private:
  void ChangeTwo(const Choice& one, const Choice& two, Random& random) {
    constexpr int kChanges = 1000;
    const std::pair<const PackageNumber&, uint64_t> changes[] = {
        {one.first, random.OneOf(one.second)}, {two.first, random.OneOf(two.second)}};
    for (int i = 0; i < kChanges && !isDone_; ++i) {
      for (const auto& [number, value] : changes) Change(number, value, random);
      for (const auto& [number, value] : changes) Change(number, number.value, random);
    }
  }
  void Change(const PackageNumber& number, uint64_t value, Random& random) {
    Put(number, value);
    for (size_t pause = random.Below(100); pause != 0; --pause) isDone_.load();
  }
  void Put(const PackageNumber& number, uint64_t value) {
    for (size_t i = 0; i < number.size; ++i) {
      view_[number.offset + i] = static_cast<uint8_t>(value >> (8 * i));
    }
  }

  size_t size_;
  Fd file_;
  volatile uint8_t* view_ = nullptr;
  std::atomic<bool> isDone_ = false;
  std::thread writer_;
};

// Returns the key of a good package, or nothing for a refused one.
ByteVector VerifiedKey(int fd, bool throughApk) {
  ByteVector key;
  if (throughApk) {
    Apk apk(fd, /*ignoreHalyxFilter=*/true);
    if (apk.IsGoodApk()) key = apk.GetManufacturerKey();
  } else {
    const std::shared_ptr<MapFile> mapping = MapFileRO(fd);
    ApkPackage package(mapping, FilePages(*mapping));
    if (package.ParseApkPackage() && package.VerifyApkPackage()) {
      static_cast<void>(package.GetMainPublicKey(key));
    }
  }
  return key;
}

void Race(const ByteVector& package, const std::vector<Choice>& choices) {
  LogCapture log;
  const ByteVector goodKey = VerifiedKey(MemoryFile(package).GetFd(), /*throughApk=*/true);
  const ChangingFile file(package, choices);
  const auto end = std::chrono::steady_clock::now() + kTimeForAPackage;
  for (int round = 0; round < kMostRounds && std::chrono::steady_clock::now() < end; ++round) {
    const ByteVector key = VerifiedKey(file.GetFd(), /*throughApk=*/round % 4 == 0);
    Require(key.empty() || key == goodKey, "a changing package is refused or has its key");
    log.Take();
  }
}

void RaceForEachNumber(const ByteVector& package) {
  std::vector<Choice> choices;
  for (const PackageNumber& number : NumbersOf(package)) {
    choices.emplace_back(number, number.Others());
  }
  Race(package, choices);
}

}  // namespace
}  // namespace Quill

int main() {
  Quill::SignerOptions signer, rotated;
  signer.key = rotated.key = &Quill::FixedKeys().front();
  rotated.attributes = {
      Quill::LineageAttribute(Quill::Lineage({&Quill::FixedKeys().back(), rotated.key}))};
  Quill::RaceForEachNumber(Quill::PackageBuilder().Manifest().V2({signer}).Build());
  Quill::RaceForEachNumber(Quill::PackageBuilder().Manifest().V3({rotated}).Build());

  const auto hostile = Quill::PutPairBehindBlock(
      Quill::PackageBuilder().Manifest().V2({signer}).Comment(Quill::ByteVector(4096)).Build());
  Quill::Race(hostile.package, {{hostile.blockSize, {hostile.longerBlockSize}},
                                {hostile.pairLength, {1 << 20, uint64_t{1} << 60}}});
}
