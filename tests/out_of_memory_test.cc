// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <new>
#include <set>
#include <string>
#include <system_error>
#include <tuple>

#include <quillon/entry_points.h>
#include <quillon/signing.h>
#include <quillon/tarn.h>

#include "integrity/libhx.h"
#include "simulator/simulator.h"
#include "tests/support/opened_package.h"

// Fails each allocation in turn while files are labelled. This file defines
// malloc, so any thread and any library is meant. Sanitizers have a malloc of their own: with them
// only the allocations of C++ fail, and the address sanitizer looks for leaks.

namespace {

std::atomic<bool> isArmed{false};
std::atomic<int> allocations{0};  // while armed
int failing = 0;                  // the allocation that fails, counted from 1
bool failsForGood = false;        // all later ones fail, too
thread_local int exemptions = 0;  // while there are some, allocations of this thread succeed

bool FailsNow() {
  if (!isArmed || exemptions != 0) return false;
  const int number = ++allocations;
  if (number != failing && !(failsForGood && number > failing)) return false;
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

VISIBLE void* malloc(size_t size) noexcept { return FailsNow() ? nullptr : __libc_malloc(size); }
VISIBLE void* calloc(size_t count, size_t size) noexcept {
  return FailsNow() ? nullptr : __libc_calloc(count, size);
}
VISIBLE void* realloc(void* block, size_t size) noexcept {
  return FailsNow() ? nullptr : __libc_realloc(block, size);
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
#define EXEMPT(name, parameters, arguments)     \
  int __real_##name parameters;                 \
  int __wrap_##name parameters {                \
    ++exemptions;                               \
    const int result = __real_##name arguments; \
    --exemptions;                               \
    return result;                              \
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

using tarnsim::Call;
using Workflow = std::function<bool()>;  // returns false when it failed
// The labels and certificates that files received: file, identity, label and certificate.
using Facts = std::set<std::tuple<std::string, std::string, ByteVector, ByteVector>>;

struct Outcome {
  Facts facts;
  bool isDone = false;  // neither failed nor ended by an exception
  std::string log;
};

// Runs the workflow while the allocation of that number fails; 0: none.
Outcome Perform(const Workflow& workflow, const tarnsim::KernelSetup& setup, int number) {
  Outcome outcome;
  tarnsim::Simulation simulation(setup);
  LogCapture log;
  failing = number;
  allocations = 0;
  isArmed = true;
  try {
    outcome.isDone = workflow();
  } catch (const std::bad_alloc&) {
  } catch (const std::system_error&) {  // a thread cannot start
  }
  isArmed = false;
  outcome.log = log.Take();
  // An entry point reports a failure by its lines alone.
  if (outcome.log.find("E ") != std::string::npos) outcome.isDone = false;
  for (const tarnsim::Request& request : simulation.TakeJournal()) {
    const bool isSet = request.call == Call::kSign || request.call == Call::kCertificate;
    if (!isSet || request.result != 0) continue;
    outcome.facts.emplace(request.file, request.identity, request.label, request.certificate);
  }
  return outcome;
}

// Runs the workflow until no allocation is left to fail. Returns the facts without a failure.
// `fallback` is what the JAR signature yields, which counts when a file cannot be mapped.
Facts Sweep(const Workflow& workflow, const tarnsim::KernelSetup& setup, const Facts& fallback) {
  failsForGood = false;
  Facts expected = Perform(workflow, setup, 0).facts;
  EXPECT_FALSE(expected.empty());
  for (const bool forGood : {false, true}) {
    failsForGood = forGood;
    for (int number = 1; number == 1 || allocations >= failing; ++number) {
      const ptrdiff_t descriptors = OpenDescriptors();
      const Outcome outcome = Perform(workflow, setup, number);
      SCOPED_TRACE("allocation " + std::to_string(number) + "\n" + outcome.log);
      EXPECT_EQ(descriptors, OpenDescriptors());
      const Facts& facts = outcome.facts;
      if (!fallback.empty() && facts == fallback) {
        EXPECT_NE(std::string::npos, outcome.log.find("Can't map file"));
      } else {
        EXPECT_TRUE(std::includes(expected.begin(), expected.end(), facts.begin(), facts.end()) &&
                    (facts == expected || !outcome.isDone));
      }
    }
  }
  return expected;
}

PackageBuilder Package(bool isUtf8 = false) {
  return PackageBuilder()
      .Entry("AndroidManifest.xml", ManifestXml("org.quillon.test", /*isHalyx=*/true, isUtf8),
             Compression::kDeflated)
      .Entry("classes.dex", {1})
      .Entry("lib/arm64-v8a/a.so", {1})
      .Entry("lib/armeabi/b.so", {2});
}

// Memory that runs out costs the label only. No file gets another label or another certificate, and
// a workflow that labels a part of its files fails.
TEST(OutOfMemory, CostsTheVerdictOrTheLabelOnly) {
  SignerOptions newest;
  newest.key = &TestKey("p256-1");
  newest.attributes = {LineageAttribute(Lineage({&TestKey("p256-0"), newest.key}))};
  const TempFolder folder;
  const std::string path = folder.Write("base.apk", Package().V3().Build());
  folder.Write("lib/arm64/a.so", {1});
  folder.Write("lib/arm/b.so", {2});
  const Fd v3 = Fd(open(path.c_str(), O_RDONLY)), oat = MemoryFile({1}), vdex = MemoryFile({2});
  const Fd packages[] = {MemoryFile(Package().JarSignature().Build()),
                         MemoryFile(Package().JarSignature().V2().Build()),
                         MemoryFile(Package().V2({{}, {}}).Build()),
                         MemoryFile(Package().V3({newest}).Build()),
                         MemoryFile(Package(/*isUtf8=*/true).V3().Build())};
  // The packages are labelled themselves. So their files would be labelled as those of a JAR, if a
  // package were taken for one.
  tarnsim::KernelSetup setup;
  setup.labels = {{v3.GetFd(), {0, 0}}};
  std::vector<Workflow> workflows;
  for (const Fd& package : packages) {
    setup.labels.push_back({package.GetFd(), {0, 0}});
    workflows.emplace_back([&] { return TarnSign(package.GetFd(), oat.GetFd()) == TARN_OK; });
  }
  workflows.emplace_back([&] {
    RunOEMFuncForProvisionOat(v3.GetFd(), oat.GetFd(), vdex.GetFd());
    return true;
  });
  for (const int fd : {v3.GetFd(), -1}) {
    workflows.emplace_back([&, fd] {
      Apk apk(fd, path.c_str());
      return TarnSignJni(apk, v3.GetFd(), nullptr) == TARN_OK;
    });
  }
  Facts ofV1;
  for (const Workflow& workflow : workflows) {
    SCOPED_TRACE(&workflow - workflows.data());
    const Facts facts = Sweep(workflow, setup, ofV1);
    if (ofV1.empty()) ofV1 = facts;
  }
}

}  // namespace
}  // namespace Quill
