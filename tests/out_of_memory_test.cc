// SPDX-License-Identifier: Apache-2.0

#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <system_error>

#include <quillon/entry_points.h>
#include <quillon/signing.h>
#include <quillon/tarn.h>

#include "integrity/libhx.h"
#include "simulator/simulator.h"
#include "tests/support/opened_package.h"

// Fails each allocation in turn while packages are opened and files are labelled. This file defines
// malloc, so any thread and any library is meant. Sanitizers have a malloc of their own: with them
// only the allocations of C++ fail, and the sanitizer looks for leaks.

namespace {

std::atomic<bool> isArmed{false};
std::atomic<int> allocations{0};  // while armed
std::atomic<int> blocks{0};       // allocated while armed and not freed
int failing = 0;                  // the allocation that fails, counted from 1
bool failsForGood = false;        // all later ones fail, too
std::atomic<bool> failedInLeakyLibrary{false};
thread_local int exemptions = 0;

// Allocations of this thread succeed while one lives.
struct Exempt {
  Exempt() { ++exemptions; }
  Exempt(const Exempt&) = delete;
  Exempt& operator=(const Exempt&) = delete;
  ~Exempt() { --exemptions; }
};

bool Counts() { return isArmed && exemptions == 0; }

// libziparchive and libbase are built without clean-up behind exceptions. libcrypto and
// libandroidfw lose blocks when they lack the memory to parse a certificate or a manifest.
bool IsInLeakyLibrary() {
  const Exempt exempt;
  void* frames[64];
  return std::any_of(frames, frames + backtrace(frames, 64), [](void* frame) {
    Dl_info info;
    const std::string_view file = dladdr(frame, &info) != 0 ? info.dli_fname : "";
    const auto isIn = [&file](const char* name) { return file.find(name) != file.npos; };
    return isIn("/libandroidfw.") || isIn("/libbase.") || isIn("/libcrypto.") ||
           isIn("/libziparchive.");
  });
}

bool FailsNow() {
  if (!Counts()) return false;
  const int number = ++allocations;
  if (number != failing && !(failsForGood && number > failing)) return false;
  if (!failedInLeakyLibrary) failedInLeakyLibrary = IsInLeakyLibrary();
  errno = ENOMEM;
  return true;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier, cppcoreguidelines-no-malloc): names of the C library
// and of the linker's --wrap
#define VISIBLE __attribute__((visibility("default")))
#if QUILLON_OWN_MALLOC
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void __libc_free(void* block);

static void* Counted(void* block) {
  if (block != nullptr && Counts()) ++blocks;
  return block;
}

VISIBLE void* malloc(size_t size) noexcept {
  return FailsNow() ? nullptr : Counted(__libc_malloc(size));
}
VISIBLE void* calloc(size_t count, size_t size) noexcept {
  return FailsNow() ? nullptr : Counted(__libc_calloc(count, size));
}
VISIBLE void* realloc(void* block, size_t size) noexcept {
  if (block == nullptr) return malloc(size);
  return FailsNow() ? nullptr : __libc_realloc(block, size);
}
VISIBLE void free(void* block) noexcept {
  if (block != nullptr && Counts()) --blocks;
  __libc_free(block);
}
}
#else
extern "C" VISIBLE const char* __lsan_default_suppressions() {
  return "leak:libbase.so\nleak:libziparchive.so\n";
}
// g++ warns of mismatched functions when these are inlined.
#define NOT_INLINE __attribute__((noinline))
NOT_INLINE void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return FailsNow() ? nullptr : std::malloc(size);
}
NOT_INLINE void* operator new(size_t size) {
  void* block = operator new(size, std::nothrow);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
NOT_INLINE void operator delete(void* block) noexcept { std::free(block); }
NOT_INLINE void operator delete(void* block, size_t) noexcept { std::free(block); }
#endif

// The simulated kernel and certificate library do not use the caller's memory: they are exempt.
#define EXEMPT(name, parameters, arguments) \
  int __real_##name parameters;             \
  int __wrap_##name parameters {            \
    const Exempt exempt;                    \
    return __real_##name arguments;         \
  }

extern "C" {
EXEMPT(open, (const char* path, int flags, mode_t mode), (path, flags, mode))
EXEMPT(ioctl, (int fd, unsigned long code, void* argument), (fd, code, argument))
EXEMPT(fstatvfs, (int fd, struct statvfs* info), (fd, info))
EXEMPT(statvfs, (const char* path, struct statvfs* info), (path, info))
EXEMPT(HxNewCertificate, (int fd, const char* name, const uint8_t* data, size_t size),
       (fd, name, data, size))

// std::thread::hardware_concurrency calls it. Several workers run, whatever the machine has.
VISIBLE int get_nprocs() noexcept { return 4; }
}
// NOLINTEND(bugprone-reserved-identifier, cppcoreguidelines-no-malloc)

namespace Quill {
namespace {

// The identity that was accepted, or the labels and certificates that files received.
using Facts = std::set<std::string>;

struct Scenario {
  const char* name;
  std::function<bool(Facts&)> run;  // false when the call refused
  tarnsim::KernelSetup setup = {};
};

struct Outcome {
  Facts facts;
  bool isDone = false;      // neither refused nor ended by an exception
  const char* thrown = "";  // what it ended by
  std::string log;
  bool isReached = false;  // the allocation that was to fail
  int blocks = 0;          // lost, but by leaky libraries
};

Outcome Perform(const Scenario& scenario, int first, bool forGood) {
  Outcome outcome;
  tarnsim::Simulation simulation(scenario.setup);
  LogCapture log;
  failing = first;
  failsForGood = forGood;
  allocations = blocks = 0;
  failedInLeakyLibrary = false;
  isArmed = true;
  try {
    outcome.isDone = scenario.run(outcome.facts);
  } catch (const std::bad_alloc&) {
    outcome.thrown = "bad_alloc";
  } catch (const std::system_error& error) {
    const bool isOfThread = error.code() == std::errc::resource_unavailable_try_again;
    outcome.thrown = isOfThread ? "no thread" : "unexpected";
  }
  isArmed = false;
  outcome.isReached = allocations >= failing;
  outcome.blocks = failedInLeakyLibrary ? 0 : blocks.load();
  outcome.log = log.Take();
  // An entry point reports a failure by its lines alone.
  if (outcome.log.find("E ") != std::string::npos) outcome.isDone = false;
  for (const tarnsim::Request& request : simulation.TakeJournal()) {
    const bool isSet =
        request.call == tarnsim::Call::kSign || request.call == tarnsim::Call::kCertificate;
    if (!isSet || request.result != 0) continue;
    outcome.facts.insert(request.file + ": " + request.identity + " " + Hex(request.label) +
                         Hex(request.certificate));
  }
  return outcome;
}

// Runs the scenario until no allocation is left to fail. Returns the facts without a failure.
// `fallback` is what the JAR signature yields, which is looked at when a file cannot be mapped.
Facts Sweep(const Scenario& scenario, const Facts& fallback) {
  SCOPED_TRACE(scenario.name);
  for (int i = 0; i < 2; ++i) Perform(scenario, 0, false);  // fills caches
  const Outcome expected = Perform(scenario, 0, false);
  EXPECT_TRUE(expected.isDone && !expected.facts.empty()) << expected.log;

  for (const bool forGood : {false, true}) {
    bool isReached = true;
    for (int first = 1; isReached; ++first) {
      const ptrdiff_t descriptors = OpenDescriptors();
      Outcome outcome = Perform(scenario, first, forGood);
      isReached = outcome.isReached;
      // What a library keeps from its first failure is no leak, so a second run decides.
      if (outcome.blocks > 0) outcome = Perform(scenario, first, forGood);
      SCOPED_TRACE("allocation " + std::to_string(first) + (forGood ? " and all later: " : ": ") +
                   outcome.thrown + "\n" + outcome.log);
      EXPECT_GE(0, outcome.blocks);
      EXPECT_EQ(descriptors, OpenDescriptors());
      EXPECT_STRNE("unexpected", outcome.thrown);
      if (!fallback.empty() && outcome.facts == fallback) {
        EXPECT_NE(std::string::npos, outcome.log.find("Can't map file"));
      } else if (outcome.isDone) {
        EXPECT_EQ(expected.facts, outcome.facts);
      } else {
        EXPECT_TRUE(std::includes(expected.facts.begin(), expected.facts.end(),
                                  outcome.facts.begin(), outcome.facts.end()));
      }
    }
  }
  return expected.facts;
}

ByteVector Manifest() {
  return ManifestXml("org.quillon.test",
                     {{"uses-permission", {{"name", "com.vrk.android.SECURE_STORAGE"}}}});
}

// Returns the document with its texts in UTF-8, each in the place of the longer one.
ByteVector InUtf8(ByteVector xml) {
  constexpr size_t kPool = 8, kCount = kPool + 8, kFlags = kPool + 16, kOffsets = kPool + 28;
  const size_t start = kPool + xml[kPool + 20];
  for (size_t i = 0; i < xml[kCount]; ++i) {
    uint8_t* text = &xml[start + xml[kOffsets + 4 * i] + 256U * xml[kOffsets + 4 * i + 1]];
    const uint8_t length = text[1] = text[0];
    for (size_t k = 0; k < length; ++k) text[2 + k] = text[2 + 2 * k];
    text[2 + length] = 0;
  }
  xml[kFlags + 1] = 1;
  return xml;
}

PackageBuilder Package(const ByteVector& manifest = Manifest()) {
  return PackageBuilder()
      .Entry("AndroidManifest.xml", manifest, Compression::kDeflated)
      .Entry("classes.dex", {1})
      .Entry("lib/arm64-v8a/a.so", {1})
      .Entry("lib/armeabi/b.so", {2});
}

bool Accepts(int fd, const char* path, Facts& facts) {
  Apk apk(fd, path);
  if (!apk.IsGoodApk()) return false;
  const Exempt exempt;
  facts = {std::to_string(static_cast<int>(apk.GetApkSignatureSchemeVersion())) + " " +
           apk.GetPackageName() + " " + Hex(apk.GetManufacturerKey())};
  return true;
}

// Memory that runs out costs the verdict or the label. No package is accepted under another
// identity, no file gets another label, and a call that labels a part of its files fails.
TEST(OutOfMemory, CostsTheVerdictOrTheLabelOnly) {
  SignerOptions newest;
  newest.key = &TestKey(KeyType::kP256, 1);
  newest.attributes = {LineageAttribute(Lineage({&TestKey(KeyType::kP256), newest.key}))};
  const TempFolder folder;
  const std::string path = folder.Write("base.apk", Package().V3().Build());
  folder.Write("lib/arm64/a.so", {1});
  folder.Write("lib/arm/b.so", {2});
  const Fd v1 = MemoryFile(Package().JarSignature().Build());
  const Fd v1AndV2 = MemoryFile(Package().JarSignature().V2().Build());
  const Fd v2 = MemoryFile(Package().V2({{}, {}}).Build());
  const Fd v3 = Fd(open(path.c_str(), O_RDONLY));
  const Fd rotated = MemoryFile(Package().V3({newest}).Build());
  const Fd utf8 = MemoryFile(Package(InUtf8(Manifest())).V3().Build());
  const Fd oat = MemoryFile({1}), vdex = MemoryFile({2});
  const auto opens = [](const Fd& file) {
    return [&file](Facts& facts) { return Accepts(file.GetFd(), nullptr, facts); };
  };
  // A package that is labelled itself: without the signing block its files would be labelled as
  // those of a JAR.
  tarnsim::KernelSetup labelled;
  labelled.labels = {{v3.GetFd(), {0, 0}}};

  const Scenario kScenarios[] = {
      {"v1", opens(v1)},
      {"v1 and v2", opens(v1AndV2)},
      {"v2", opens(v2)},
      {"rotated", opens(rotated)},
      {"v3 by path", [&](Facts& facts) { return Accepts(-1, path.c_str(), facts); }},
      {"UTF-8", [&](Facts&) { return TarnSign(utf8.GetFd(), oat.GetFd()) == TARN_OK; }},
      {"TarnSign", [&](Facts&) { return TarnSign(v3.GetFd(), oat.GetFd()) == TARN_OK; }, labelled},
      {"provision",
       [&](Facts&) {
         RunOEMFuncForProvisionOat(v3.GetFd(), oat.GetFd(), vdex.GetFd());
         return true;
       },
       labelled},
      {"TarnSignJni",
       [&](Facts&) {
         Apk apk(v3.GetFd());
         return TarnSignJni(apk, v3.GetFd(), nullptr) == TARN_OK;
       }},
  };
  Facts ofV1;
  for (const Scenario& scenario : kScenarios) {
    const Facts facts = Sweep(scenario, ofV1);
    if (ofV1.empty()) ofV1 = facts;
  }
}

}  // namespace
}  // namespace Quill
