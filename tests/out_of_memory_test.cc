// SPDX-License-Identifier: Apache-2.0

#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <system_error>

#include <quillon/apk.h>
#include <quillon/entry_points.h>
#include <quillon/signing.h>
#include <quillon/tarn.h>

#include "integrity/libhx.h"
#include "simulator/simulator.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"
#include "util/log.h"

// Fails each allocation in turn while packages are opened and files labelled, on whatever thread
// and in whatever library it is: malloc and its like are this file's. Sanitizers have their own, so
// there only what C++ allocates fails, and they look for leaks.

namespace {

std::atomic<bool> isArmed{false};
std::atomic<int> allocations{0};  // since it was armed
std::atomic<int> blocks{0};       // allocated since then and still there
int failing = 0;                  // the allocation that fails, counted from 1
bool failsForGood = false;        // and so do all behind it
// True once an allocation has failed in a library that does not clean up when memory is short.
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

// The archive library and its base are built without clean-up behind exceptions; the parsers of
// certificates and compiled manifests lose a block here and there.
bool IsInLeakyLibrary() {
  const Exempt exempt;
  void* frames[64];
  const int count = backtrace(frames, 64);
  for (int i = 0; i < count; ++i) {
    Dl_info info;
    if (dladdr(frames[i], &info) == 0) continue;
    const std::string_view file = info.dli_fname;
    for (const char* library : {"/libandroidfw.", "/libbase.", "/libcrypto.", "/libziparchive."}) {
      if (file.find(library) != std::string_view::npos) return true;
    }
  }
  return false;
}

bool FailsNow() {
  if (!Counts()) return false;
  const int number = ++allocations;
  if (number != failing && !(failsForGood && number > failing)) return false;
  if (!failedInLeakyLibrary) failedInLeakyLibrary = IsInLeakyLibrary();
  return true;
}

// The calls that fail, while one lives.
struct Armed {
  Armed(int first, bool forGood) {
    failing = first;
    failsForGood = forGood;
    allocations = blocks = 0;
    failedInLeakyLibrary = false;
    isArmed = true;
  }
  Armed(const Armed&) = delete;
  Armed& operator=(const Armed&) = delete;
  ~Armed() { isArmed = false; }
};

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier, cppcoreguidelines-no-malloc): names of the C library
// and of the linker's --wrap
extern "C" {

#if QUILLON_OWN_MALLOC
#define VISIBLE __attribute__((visibility("default")))
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void __libc_free(void* block);

static void* Allocated(void* block) {
  if (block == nullptr) errno = ENOMEM;
  if (block != nullptr && Counts()) ++blocks;
  return block;
}

VISIBLE void* malloc(size_t size) noexcept {
  return Allocated(FailsNow() ? nullptr : __libc_malloc(size));
}

VISIBLE void* calloc(size_t count, size_t size) noexcept {
  return Allocated(FailsNow() ? nullptr : __libc_calloc(count, size));
}

VISIBLE void* realloc(void* block, size_t size) noexcept {
  if (block == nullptr) return malloc(size);
  void* moved = FailsNow() ? nullptr : __libc_realloc(block, size);
  if (moved == nullptr) errno = ENOMEM;
  return moved;
}

VISIBLE void free(void* block) noexcept {
  if (block != nullptr && Counts()) --blocks;
  __libc_free(block);
}
#endif

// The simulated kernel does not run out of the caller's memory.
int __real_open(const char* path, int flags, ...);
int __real_ioctl(int fd, unsigned long code, ...);
int __real_fstatvfs(int fd, struct statvfs* info);
int __real_statvfs(const char* path, struct statvfs* info);
int __real_HxNewCertificate(int fd, const char* name, const uint8_t* data, size_t size);

int __wrap_open(const char* path, int flags, mode_t mode) {
  const Exempt exempt;
  return __real_open(path, flags, mode);
}
int __wrap_ioctl(int fd, unsigned long code, void* argument) {
  const Exempt exempt;
  return __real_ioctl(fd, code, argument);
}
int __wrap_fstatvfs(int fd, struct statvfs* info) {
  const Exempt exempt;
  return __real_fstatvfs(fd, info);
}
int __wrap_statvfs(const char* path, struct statvfs* info) {
  const Exempt exempt;
  return __real_statvfs(path, info);
}
int __wrap_HxNewCertificate(int fd, const char* name, const uint8_t* data, size_t size) {
  const Exempt exempt;
  return __real_HxNewCertificate(fd, name, data, size);
}

// What std::thread::hardware_concurrency asks: several workers, whatever the machine.
__attribute__((visibility("default"))) int get_nprocs() noexcept { return 4; }

}  // extern "C"

#if !QUILLON_OWN_MALLOC
// Inlined, g++ takes them for a mismatch.
#define NOT_INLINE __attribute__((noinline))
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libbase.so\nleak:libziparchive.so\n";
}
NOT_INLINE void* operator new(size_t size) {
  void* block = FailsNow() ? nullptr : std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
NOT_INLINE void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return FailsNow() ? nullptr : std::malloc(size);
}
NOT_INLINE void operator delete(void* block) noexcept { std::free(block); }
NOT_INLINE void operator delete(void* block, size_t) noexcept { std::free(block); }
#endif
// NOLINTEND(bugprone-reserved-identifier, cppcoreguidelines-no-malloc)

namespace Quill {
namespace {

using tarnsim::Call;
using tarnsim::KernelSetup;
using tarnsim::Simulation;

std::string* lines = nullptr;  // what is logged goes there

template <typename Record, typename... Text>
void Keep(const Record* record, Text... beside) {
  const Exempt exempt;
  if (lines == nullptr || record->tag == nullptr || std::string(record->tag) != "Quillon") return;
  lines->append({"??VDIWEF"[record->priority], ' '}).append(LogText(*record, beside...));
  if (lines->back() != '\n') *lines += '\n';
}

// What came out of a call: the identity that was accepted, the labels and certificates that files
// have.
using Facts = std::set<std::string>;
// Makes the call and returns whether it was not refused.
using Operation = std::function<bool(Facts&)>;

struct Outcome {
  Facts facts;
  bool isDone = false;  // neither refused nor ended by an exception
  std::string error;    // of an exception
  std::string log;
  bool isReached = false;  // the allocation that was to fail
  int blocks = 0;          // that were lost, but by leaky libraries
};

Outcome Perform(const KernelSetup& setup, const Operation& operation, int first, bool forGood) {
  Outcome outcome;
  Simulation simulation(setup);
  lines = &outcome.log;
  {
    const Armed armed(first, forGood);
    try {
      outcome.isDone = operation(outcome.facts);
    } catch (const std::bad_alloc&) {
      const Exempt exempt;
      outcome.error = "bad_alloc";
    } catch (const std::system_error& error) {  // a thread could not be started
      const Exempt exempt;
      outcome.error =
          error.code() == std::errc::resource_unavailable_try_again ? "no thread" : error.what();
    }
  }
  lines = nullptr;
  outcome.isReached = allocations >= failing;
  outcome.blocks = failedInLeakyLibrary ? 0 : blocks.load();
  // The lines are all that an entry point tells.
  if (outcome.log.find("E ") != std::string::npos) outcome.isDone = false;
  for (const tarnsim::Request& request : simulation.TakeJournal()) {
    if (request.result != 0) continue;
    if (request.call == Call::kSign) outcome.facts.insert(request.file + ": " + Hex(request.label));
    if (request.call == Call::kCertificate) {
      outcome.facts.insert(request.file + ": " + request.identity + " " + Hex(request.certificate));
    }
  }
  return outcome;
}

// Runs the operation until no allocation is left to fail. `fallback` is the fact that is right as
// well when the package could not be mapped.
void Sweep(const char* name, const Operation& operation, const KernelSetup& setup = {},
           const std::string& fallback = {}) {
  SCOPED_TRACE(name);
  for (int i = 0; i < 2; ++i) Perform(setup, operation, 0, false);  // fills what is kept for good
  const Outcome expected = Perform(setup, operation, 0, false);
  ASSERT_TRUE(expected.isDone) << expected.log;
  ASSERT_FALSE(expected.facts.empty());

  for (const bool forGood : {false, true}) {
    bool isReached = true;
    for (int first = 1; isReached; ++first) {
      const ptrdiff_t descriptors = OpenDescriptors();
      Outcome outcome = Perform(setup, operation, first, forGood);
      isReached = outcome.isReached;
      // What a library keeps from its first failure is no leak, so a second run decides.
      if (outcome.blocks > 0) outcome = Perform(setup, operation, first, forGood);
      const std::string place = "allocation " + std::to_string(first) +
                                (forGood ? " and all behind it: " : ": ") + outcome.error + "\n" +
                                outcome.log;
      EXPECT_GE(0, outcome.blocks) << place;
      EXPECT_EQ(descriptors, OpenDescriptors()) << place;
      EXPECT_TRUE(outcome.error.empty() || outcome.error == "bad_alloc" ||
                  outcome.error == "no thread")
          << place;
      if (outcome.facts == Facts{fallback}) {
        EXPECT_NE(std::string::npos, outcome.log.find("Can't map file")) << place;
        continue;
      }
      if (outcome.isDone) {
        EXPECT_EQ(expected.facts, outcome.facts) << place;
      }
      for (const std::string& fact : outcome.facts) {
        EXPECT_EQ(1u, expected.facts.count(fact)) << fact << "\n" << place;
      }
    }
  }
}

// Opens the package and tells its identity when it is good.
bool Accepts(int fd, const char* path, Facts& facts) {
  Apk apk(fd, path);
  if (!apk.IsGoodApk()) return false;
  const Exempt exempt;
  const auto scheme = static_cast<int>(apk.GetApkSignatureSchemeVersion());
  facts = {std::to_string(scheme) + " " + apk.GetPackageName() + " " +
           Hex(apk.GetManufacturerKey())};
  return true;
}

ByteVector Manifest() {
  const XmlElement permission = {"uses-permission",
                                 {{"name", std::string("com.vrk.android.SECURE_STORAGE")}}};
  return ManifestXml("org.quillon.test", {permission});
}

// The document with its texts in UTF-8, each in the place of the longer one.
ByteVector InUtf8(ByteVector xml) {
  constexpr size_t kPool = 8, kCount = kPool + 8, kFlags = kPool + 16, kOffsets = kPool + 28;
  const size_t start = kPool + xml[kPool + 20];
  for (size_t i = 0; i < xml[kCount]; ++i) {
    uint8_t* text = &xml[start + xml[kOffsets + 4 * i] + 256U * xml[kOffsets + 4 * i + 1]];
    const uint8_t length = text[0];
    text[1] = length;
    for (size_t k = 0; k < length; ++k) text[2 + k] = text[2 + 2 * k];
    text[2 + length] = 0;
  }
  xml[kFlags + 1] = 1;
  return xml;
}

PackageBuilder Package(const ByteVector& manifest = Manifest()) {
  return PackageBuilder().Entry("AndroidManifest.xml", manifest, Compression::kDeflated);
}

SignerOptions Rotated() {
  SignerOptions signer;
  signer.key = &TestKey(KeyType::kP256, 1);
  signer.attributes = {
      LineageAttribute(Lineage({&TestKey(KeyType::kP256), &TestKey(KeyType::kP256, 1)}))};
  return signer;
}

class OutOfMemory : public testing::Test {
 protected:
  OutOfMemory() { __android_log_set_logger(Keep); }
  ~OutOfMemory() override { __android_log_set_logger(__android_log_stderr_logger); }
};

TEST_F(OutOfMemory, NoPackageIsAcceptedUnderAnotherIdentity) {
  const struct {
    const char* name;
    PackageBuilder builder;
  } kCases[] = {
      {"v1", Package().Entry("classes.dex", {1}).JarSignature()},
      {"v2", Package().V2({{}, {}})},
      {"v3", Package().V3()},
      {"rotated", Package().V3({Rotated()})},
  };
  for (const auto& c : kCases) {
    const Fd file = MemoryFile(c.builder.Build());
    Sweep(c.name, [&](Facts& facts) { return Accepts(file.GetFd(), nullptr, facts); });
  }

  // A mapping that failed leads to the JAR signature.
  PackageBuilder builder = Package().Entry("classes.dex", {1}).JarSignature();
  const Fd jar = MemoryFile(builder.Build());
  const Fd both = MemoryFile(builder.V2().Build());
  const auto openJar = [&](Facts& facts) { return Accepts(jar.GetFd(), nullptr, facts); };
  const Outcome fallback = Perform({}, openJar, 0, false);
  ASSERT_EQ(1U, fallback.facts.size());
  Sweep(
      "v1 and v2", [&](Facts& facts) { return Accepts(both.GetFd(), nullptr, facts); }, {},
      *fallback.facts.begin());
}

TEST_F(OutOfMemory, AFileIsLabelledForThePackageOrTheCallFails) {
  const Fd package = MemoryFile(Package().V3().Build());
  const Fd utf8Package = MemoryFile(Package(InUtf8(Manifest())).V3().Build());
  const Fd oat = MemoryFile({1});
  const Fd vdex = MemoryFile({2});
  // The package is labelled itself, so that its files would be labelled as those of a JAR, too.
  KernelSetup setup;
  setup.labels = {{package.GetFd(), {0, 0}}};
  Sweep("UTF-8", [&](Facts&) { return TarnSign(utf8Package.GetFd(), oat.GetFd()) == TARN_OK; });
  Sweep(
      "TarnSign", [&](Facts&) { return TarnSign(package.GetFd(), oat.GetFd()) == TARN_OK; }, setup);
  Sweep(
      "provision",
      [&](Facts&) {
        RunOEMFuncForProvisionOat(package.GetFd(), oat.GetFd(), vdex.GetFd());
        return true;
      },
      setup);
}

TEST_F(OutOfMemory, EveryNativeLibraryIsLabelledOrTheCallFails) {
  const TempFolder folder;
  const std::string path = folder.Write(
      "base.apk",
      Package().Entry("lib/arm64-v8a/a.so", {1}).Entry("lib/armeabi/b.so", {2}).V3().Build());
  folder.Write("lib/arm64/a.so", {1});
  folder.Write("lib/arm/b.so", {2});
  const Fd package = Fd(open(path.c_str(), O_RDONLY));
  Sweep("TarnSignJni", [&](Facts&) {
    Apk apk(package.GetFd());
    return TarnSignJni(apk, package.GetFd(), nullptr) == TARN_OK;
  });
  Sweep("by path", [&](Facts& facts) { return Accepts(-1, path.c_str(), facts); });
}

}  // namespace
}  // namespace Quill
