#include "integrity/tarn.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>

#include "simulator/simulator.h"
#include "tests/support/descriptors.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_file.h"
#include "tests/support/wire.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for --wrap
namespace {
int failingAllocation = 0;  // the n-th from now fails
}
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void __real_free(void* block);
void* __wrap_malloc(size_t size) {
  return failingAllocation > 0 && --failingAllocation == 0 ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
  return failingAllocation > 0 && --failingAllocation == 0 ? nullptr : __real_calloc(count, size);
}
// A C library may leave errno changed.
void __wrap_free(void* block) {
  __real_free(block);
  errno = ENOTUNIQ;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace Quill {
namespace {

using tarnsim::Call;
using tarnsim::Fault;
using tarnsim::KernelSetup;
using tarnsim::Request;
using tarnsim::Simulation;

constexpr TarnInterface kBoth[] = {TarnInterface::kDevice, TarnInterface::kLegacy};

const Fault kNoFault = {Call::kUnknown, 0, 0};

KernelSetup On(TarnInterface interface, std::vector<Fault> faults = {}) {
  KernelSetup setup;
  setup.interface = interface;
  setup.faults = std::move(faults);
  return setup;
}

// SHA-1 of "file".
const ByteVector kSha1 = {0x97, 0x1c, 0x41, 0x9d, 0xd6, 0x09, 0x33, 0x13, 0x43, 0xde,
                          0xe1, 0x05, 0xff, 0xfd, 0x0f, 0x46, 0x08, 0xdc, 0x0b, 0xf2};

// Whatever a test does, the client logs nothing and leaves no descriptor behind.
class Tarn : public testing::Test {
 protected:
  Tarn() { EXPECT_EQ(TARN_OK, TarnExLabelAlloc(2, kSha1.data(), 20, nullptr, 0, &label_)); }
  ~Tarn() override {
    TarnExLabelFree(label_);
    EXPECT_EQ(descriptors_, OpenDescriptors());
    EXPECT_EQ(Lines(), log_.Take());
  }

  Fd file_ = MemoryFile({'f', 'i', 'l', 'e'});
  int fd_ = file_.GetFd();
  TarnExLabel* label_ = nullptr;

 private:
  LogCapture log_;
  size_t descriptors_ = OpenDescriptors();
};

using TarnFile = Tarn;
using TarnTask = Tarn;

// The start of a request about the calling task, up to word A.
Wire TaskRecord() { return Wire().U32(1).U32(static_cast<uint64_t>(getpid())).Fill(8); }

template <typename Label>
ByteVector BytesOf(const Label* label, size_t size) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(label);
  return label == nullptr ? ByteVector() : ByteVector(bytes, bytes + size);
}

TEST_F(Tarn, PlainLabelIsItsLengthAndData) {
  TarnLabel* label = nullptr;
  EXPECT_EQ(0u, TarnLabelAlloc("abc", 3, &label));
  EXPECT_EQ((ByteVector{3, 0, 'a', 'b', 'c'}), BytesOf(label, 5));
  TarnLabelFree(label);
  EXPECT_EQ(0u, TarnLabelAlloc(nullptr, 0, &label));
  EXPECT_EQ((ByteVector{0, 0}), BytesOf(label, 2));
  TarnLabelFree(label);
  EXPECT_EQ(1u, TarnLabelAlloc(nullptr, 5, &label));
  EXPECT_EQ(1u, TarnLabelAlloc("abc", 3, nullptr));
  TarnLabelFree(nullptr);
  TarnExLabelFree(nullptr);
  TarnResetFileFree(nullptr);
}

TEST_F(Tarn, ExtendedLabelIsChecked) {
  const ByteVector hash(65, 0xAA);
  TarnExLabel* label = nullptr;
  EXPECT_EQ(0u, TarnExLabelAlloc(4, hash.data(), 32, "extra", 5, &label));
  const ByteVector expected = Wire().U16(0xFFFF).U8(2).U16(0).U8(4).Fill(32, 0xAA).Fill(32).Bytes(
      {5, 0, 'e', 'x', 't', 'r', 'a'});
  EXPECT_EQ(expected, BytesOf(label, 77));
  TarnExLabelFree(label);

  const auto code = [&](uint32_t algorithm, size_t hashLength) {
    TarnExLabel* out = nullptr;
    const uint32_t result = TarnExLabelAlloc(algorithm, hash.data(),
                                             static_cast<uint16_t>(hashLength), nullptr, 0, &out);
    EXPECT_EQ(result == 0, out != nullptr);
    TarnExLabelFree(out);
    return result;
  };
  for (const uint32_t algorithm : {2u, 4u, 6u}) EXPECT_EQ(0u, code(algorithm, 20));
  for (const uint32_t algorithm : {0u, 1u, 3u, 5u, 7u, 34u, ~0u})
    EXPECT_EQ(1u, code(algorithm, 20));
  for (const size_t length : {1u, 64u}) EXPECT_EQ(0u, code(2, length));
  for (const size_t length : {0u, 65u}) EXPECT_EQ(1u, code(2, length));
  EXPECT_EQ(1u, TarnExLabelAlloc(2, nullptr, 20, nullptr, 0, &label));
  EXPECT_EQ(1u, TarnExLabelAlloc(2, hash.data(), 20, nullptr, 1, &label));
  EXPECT_EQ(1u, TarnExLabelAlloc(2, hash.data(), 20, nullptr, 0, nullptr));
}

const struct FileCall {
  const char* name;
  Call call;
  uint32_t (*run)(int fd, const void* label);
  uint32_t ioctlCode;
  uint32_t fcntlCommand;
  bool signs, needsIntegrity;
} kFileCalls[] = {
    {"sign", Call::kSign, TarnSignFd, 0xC0266604, 1124, true, true},
    {"sign, Ex", Call::kSign, TarnSignFdEx, 0xC0266604, 1124, true, true},
    {"sign, Common", Call::kSign, TarnSignFdCommon, 0xC0266604, 1124, true, true},
    {"edit", Call::kEdit, [](int fd, const void*) { return TarnEditFd(fd); }, 0xC0266605, 1128,
     false, true},
    {"close", Call::kClose, [](int fd, const void*) { return TarnCloseFd(fd); }, 0xC0266606, 1129,
     false, false},
    {"verify-sync", Call::kVerifySync, [](int fd, const void*) { return TarnVerifyFdSync(fd); },
     0xC0266607, 1126, false, false},
    {"verify", Call::kVerify, [](int fd, const void*) { return TarnVerifyFd(fd); }, 0xC0266608,
     1125, false, false},
};

TEST_F(TarnFile, CommandsReachTheKernelAsOneRequest) {
  for (const TarnInterface interface : kBoth) {
    for (const FileCall& call : kFileCalls) {
      SCOPED_TRACE(call.name);
      Simulation simulation(On(interface));
      ASSERT_EQ(0u, TarnSignFd(fd_, label_));
      simulation.TakeJournal();
      EXPECT_EQ(0u, call.run(fd_, label_));

      std::vector<Request> journal = simulation.TakeJournal();
      ASSERT_EQ(call.needsIntegrity ? 2u : 1u, journal.size());
      if (interface == TarnInterface::kDevice) {
        const auto fd = static_cast<uint32_t>(fd_);
        const uint64_t address = call.signs ? reinterpret_cast<uintptr_t>(label_) : 0;
        if (call.needsIntegrity) {
          EXPECT_EQ(0xC0266601, journal[0].command);
          EXPECT_EQ(ByteVector(TaskRecord().Fill(22)), journal[0].record);
        }
        const ByteVector record = Wire().U32(1).U32(fd).Fill(8).U64(address).Fill(14);
        EXPECT_EQ(call.ioctlCode, journal.back().command);
        EXPECT_EQ(record, journal.back().record);
      } else {
        EXPECT_EQ(call.fcntlCommand, journal.back().command);
        EXPECT_EQ(call.signs ? reinterpret_cast<uintptr_t>(label_) : 0, journal.back().argument);
        EXPECT_EQ(fd_, journal.back().target);
      }
    }
  }
}

TEST_F(TarnFile, AKernelRefusalIsItsErrnoNegated) {
  const struct {
    int result, error;
    uint32_t deviceCode, legacyCode;
  } kCases[] = {
      {-1, EIO, 0xFFFFFFFB, 0xFFFFFFFB},
      {-1, EPERM, 0xFFFFFFFF, 0xFFFFFFFF},
      {-1, ENOENT, 0xFFFFFFFE, 0xFFFFFFFE},
      {7, 4095, 0xFFFFF001, 0xFFFFF001},
      {-1, 0, 0, 0x80000000},
      {7, 0, 0, 0x80000000},
  };
  for (const TarnInterface interface : kBoth) {
    for (const FileCall& call : kFileCalls) {
      for (const auto& c : kCases) {
        SCOPED_TRACE(testing::Message() << call.name << ' ' << c.result << ' ' << c.error);
        const Simulation simulation(On(interface, {{call.call, 1, c.error, c.result}}));
        errno = EINTR;  // of an earlier call
        EXPECT_EQ(interface == TarnInterface::kDevice ? c.deviceCode : c.legacyCode,
                  call.run(fd_, label_));
        EXPECT_EQ(c.error, errno);
      }
    }
  }
}

TEST_F(TarnFile, GatesComeBeforeTheKernelAndInOrder) {
  const auto with = [](TarnInterface interface, std::vector<uint32_t> integrity, Fault fault,
                       const char* readOnly = "none") {
    KernelSetup setup = On(interface, {fault});
    setup.integrity = std::move(integrity);
    setup.readOnly = {readOnly};
    return setup;
  };
  constexpr auto kDevice = TarnInterface::kDevice;
  constexpr auto kLegacy = TarnInterface::kLegacy;
  const char* const kFile = "/memfd:quillon-test (deleted)";
  const Fault kUnreadable = {Call::kReadIntegrity, 0, EIO};
  constexpr uint32_t kNoData = 0xFFFFFFC3;  // there is no label to verify
  const struct {
    const char* name;
    KernelSetup setup;
    uint32_t edit, close, verify;  // signing is as editing
  } kCases[] = {
      {"read-only", with(kDevice, {1}, kUnreadable, kFile), 4, 4, kNoData},
      {"read-only, legacy", with(kLegacy, {1}, kUnreadable, kFile), 4, 4, kNoData},
      {"integrity 0", with(kDevice, {0}, kNoFault), 3, 0, kNoData},
      {"integrity 0 after a wait", with(kLegacy, {0xFFFFFFFF, 0}, kNoFault), 3, 0, kNoData},
      {"unreadable", with(kDevice, {1}, kUnreadable), 0x10000, 0, kNoData},
      {"unreadable, legacy", with(kLegacy, {1}, kUnreadable), 0x10000, 0, kNoData},
      {"no device", with(kDevice, {1}, {Call::kOpen, 0, EACCES}), 0x10000, 0xFFFFFFFF, 0xFFFFFFFF},
      {"no device now", with(kDevice, {1}, {Call::kOpen, 2, EACCES}), 0xFFFFFFFF, 0, kNoData},
      {"no subsystem", On(TarnInterface::kNone), 0x10000, 5, 5},
  };
  for (const auto& c : kCases) {
    for (const FileCall& call : kFileCalls) {
      SCOPED_TRACE(testing::Message() << c.name << ", " << call.name);
      const Simulation simulation(c.setup);
      const uint32_t expected =
          call.needsIntegrity ? c.edit : (call.call == Call::kClose ? c.close : c.verify);
      EXPECT_EQ(expected, call.run(fd_, label_));
      EXPECT_TRUE(expected != TARN_CANNOT_OPEN || errno == EACCES);
    }
  }
  Simulation simulation(kCases[0].setup);
  EXPECT_EQ(1u, TarnSignFd(fd_, nullptr));
  EXPECT_EQ(4u, TarnSignFd(fd_, label_));
  EXPECT_TRUE(simulation.TakeJournal().empty());
}

TEST_F(TarnTask, IntegrityIsReadAndWaitedFor) {
  constexpr uint32_t kPending = 0xFFFFFFFF;
  constexpr uint32_t kUntouched = 0xABCDEF;
  const struct {
    const char* name;
    std::vector<uint32_t> values;
    int pid;
    uint32_t wait, deviceCode, legacyCode, value;
    size_t readings;
    Fault fault;
  } kCases[] = {
      {"at once", {0x12345678}, 0, 1, 0, 0, 0x12345678, 1, kNoFault},
      {"waited for", {kPending, kPending, 1}, 0, 1, 0, 0, 1, 3, kNoFault},
      {"not waited for", {kPending, 1}, 0, 0, 0, 0, kPending, 1, kNoFault},
      {"other wait bits", {kPending, 1}, 0, 0xFFFFFFFE, 0, 0, kPending, 1, kNoFault},
      {"the value before", {0xFFFFFFFE, 1}, 0, 1, 0, 0, 0xFFFFFFFE, 1, kNoFault},
      {"by pid", {7}, getpid(), 1, 0, 0, 7, 1, kNoFault},
      {"no such task", {7}, 0x7FFFFFFF, 1, 0xFFFFFFFD, 0x10000, kUntouched, 1, kNoFault},
      {"negative pid", {7}, -1, 1, 1, 0x10000, kUntouched, 0, kNoFault},
      {"refused", {7}, 0, 1, 0xFFFFFFFB, 0x10000, kUntouched, 1, {Call::kReadIntegrity, 1, EIO}},
      {"refused later",
       {kPending},
       0,
       1,
       0xFFFFFFFB,
       0x10000,
       kPending,
       3,
       {Call::kReadIntegrity, 3, EIO}},
  };
  for (const TarnInterface interface : kBoth) {
    for (const auto& c : kCases) {
      SCOPED_TRACE(c.name);
      KernelSetup setup = On(interface, {c.fault});
      setup.integrity = c.values;
      Simulation simulation(setup);
      uint32_t value = kUntouched;
      const auto start = std::chrono::steady_clock::now();
      EXPECT_EQ(interface == TarnInterface::kDevice ? c.deviceCode : c.legacyCode,
                TarnTaskReadIntegrity(c.pid, c.wait, &value));
      const auto took = std::chrono::steady_clock::now() - start;
      EXPECT_EQ(c.value, value);
      EXPECT_EQ(c.readings, simulation.TakeJournal().size());
      EXPECT_GE(took, std::chrono::milliseconds(10) * (c.readings > 1 ? c.readings - 1 : 0));
      EXPECT_EQ(1u, TarnTaskReadIntegrity(0, 1, nullptr));
    }
  }
  KernelSetup setup = On(TarnInterface::kDevice, {{Call::kOpen, 3, EMFILE}});
  setup.integrity = {kPending};
  const Simulation simulation(setup);
  uint32_t value = kUntouched;
  EXPECT_EQ(0xFFFFFFFF, TarnTaskGetIntegrity(0, &value));
  EXPECT_EQ(EMFILE, errno);
  EXPECT_EQ(kPending, value);
}

TEST_F(TarnTask, LabelIsReadFromTheDevice) {
  const ByteVector kLongest = Wire().U16(256).Fill(256, 0x5A);
  const struct {
    const char* name;
    ByteVector label;
    int pid;
    uint32_t code;
    Fault fault;
  } kCases[] = {
      {"short", {2, 0, 0xCA, 0xFE}, 0, 0, kNoFault},
      {"longest", kLongest, getpid(), 0, kNoFault},
      {"says too much", {1, 1}, 0, 0x10000, kNoFault},
      {"none", {}, 0, 0, kNoFault},
      {"refused", {}, 0, 0xFFFFFFF3, {Call::kReadLabel, 1, EACCES}},
      {"no device", {}, 0, 0xFFFFFFFF, {Call::kOpen, 1, ENOENT}},
      {"negative pid", {}, -1, 1, kNoFault},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    KernelSetup setup = On(TarnInterface::kDevice, {c.fault});
    if (!c.label.empty()) setup.taskLabel = c.label;
    Simulation simulation(setup);
    TarnLabel* label = nullptr;
    EXPECT_EQ(c.code, TarnTaskGetIntegrityLabel(c.pid, &label));
    EXPECT_EQ(c.code == 0 ? c.label : ByteVector(), BytesOf(label, c.label.size()));
    if (label != nullptr) {
      const auto address = reinterpret_cast<uintptr_t>(label);
      const Request request = simulation.TakeJournal().at(0);
      EXPECT_EQ(0xC0266602, request.command);
      EXPECT_EQ(ByteVector(TaskRecord().U64(address).U32(258).Fill(10)), request.record);
    }
    TarnLabelFree(label);
  }
}

TEST_F(TarnTask, LegacyFilesAreNumbersInText) {
  const std::string digits(600, 'a');
  const struct {
    std::string text;
    uint32_t code;
    ByteVector label;
  } kLabels[] = {
      {"4\nCAfe\n", 0, {2, 0, 0xCA, 0xFE}},
      {"5 cafe1", 0, {2, 0, 0xCA, 0xFE}},
      {"1\nc", 0, {0, 0}},
      {"0", 0, {0, 0}},
      {"-1\n", 0, {}},
      {"513 " + digits, 0, Wire().U16(256).Fill(256, 0xAA)},
      {"514 " + digits, 0x10000, {}},
      {"4 caxx", 0x10000, {}},
      {"4 ca", 0x10000, {}},
      {"", 1, {}},
      {"cafe", 1, {}},
  };
  for (const auto& c : kLabels) {
    SCOPED_TRACE(c.text);
    KernelSetup setup = On(TarnInterface::kLegacy);
    setup.labelText = c.text;
    const Simulation simulation(setup);
    TarnLabel* label = nullptr;
    EXPECT_EQ(c.code, TarnTaskGetIntegrityLabel(0, &label));
    EXPECT_EQ(c.label, BytesOf(label, c.label.size()));
    TarnLabelFree(label);
  }
  for (const char* text : {"", "x", "-"}) {
    KernelSetup setup = On(TarnInterface::kLegacy, {{Call::kReadLabel, 1, EACCES}});
    setup.valueText = text;
    const Simulation simulation(setup);
    uint32_t value;
    TarnLabel* label;
    EXPECT_EQ(0x10000u, TarnTaskGetIntegrity(0, &value));
    EXPECT_EQ(0x10000u, TarnTaskGetIntegrityLabel(0, &label));
    EXPECT_EQ(0x10000u, TarnTaskGetIntegrityLabel(-1, &label));
  }
}

TEST_F(TarnTask, ResetFileIsPassedOn) {
  const std::string kLongest(4095, 'p');
  const struct {
    std::string path;
    uint16_t length;
    std::string copied;
  } kReplies[] = {
      {"/data/x", 8, "/data/x"}, {kLongest, 4096, kLongest},   {"/data/x", 5, "/dat"},
      {"/data/x", 1, ""},        {"/data/x", 4096, "/data/x"}, {"/data/x", 0, ""},
  };
  for (const auto& c : kReplies) {
    SCOPED_TRACE(c.length);
    KernelSetup setup;
    setup.resetFile = {0x1122334455667788, 0x99AABBCC, c.path, c.length};
    Simulation simulation(setup);
    TarnResetFile* record = nullptr;
    EXPECT_EQ(0u, TarnGetResetFile(0, &record));
    const ByteVector expected = Wire()
                                    .U64(0x1122334455667788)
                                    .U32(0x99AABBCC)
                                    .U16(c.length)
                                    .Text(c.copied)
                                    .Fill(4096 - c.copied.size());
    EXPECT_EQ(expected, BytesOf(record, 4110));
    Request request = simulation.TakeJournal().at(0);
    EXPECT_EQ(0xC0266603, request.command);
    Put(request.record, 28, ByteVector(8));  // the buffer's address
    EXPECT_EQ(ByteVector(TaskRecord().Fill(20).U16(4096)), request.record);
    TarnResetFileFree(record);
  }

  const struct {
    KernelSetup setup;
    int pid;
    uint32_t code;
  } kOthers[] = {
      {On(TarnInterface::kDevice), 0, 0},  // there is none
      {On(TarnInterface::kDevice), -1, 1},
      {On(TarnInterface::kDevice, {{Call::kReadResetFile, 1, EIO}}), 0, 0xFFFFFFFB},
      {On(TarnInterface::kDevice, {{Call::kOpen, 1, EIO}}), 0, 0xFFFFFFFF},
      {On(TarnInterface::kLegacy), 0, 5},
      {On(TarnInterface::kNone), -1, 5},
  };
  for (const auto& c : kOthers) {
    const Simulation simulation(c.setup);
    TarnResetFile* record = nullptr;
    EXPECT_EQ(c.code, TarnGetResetFile(c.pid, &record));
    EXPECT_EQ(nullptr, record);
  }
  KernelSetup setup;
  EXPECT_EQ(1u, (Simulation(setup), TarnGetResetFile(0, nullptr)));
  setup.resetFile = {0, 0, "/data/x", 4097};
  const Simulation simulation(setup);
  TarnResetFile* record;
  EXPECT_EXIT(TarnGetResetFile(0, &record), testing::KilledBySignal(SIGABRT), "");
}

TEST_F(Tarn, WithoutASubsystemTaskCallsSayFive) {
  const Simulation simulation(On(TarnInterface::kNone));
  TarnLabel* label;
  EXPECT_EQ(5u, TarnTaskReadIntegrity(-1, 1, nullptr));
  EXPECT_EQ(5u, TarnTaskGetIntegrityLabel(-1, &label));
}

TEST_F(Tarn, ShortMemoryIsItsOwnCode) {
  static TarnLabel* label;
  static TarnExLabel* extended;
  static TarnResetFile* reset;
  const auto readLabel = [] { return TarnTaskGetIntegrityLabel(0, &label); };
  const auto readReset = [] { return TarnGetResetFile(0, &reset); };
  const struct {
    TarnInterface interface;
    int allocation;
    uint32_t (*run)();
  } kCases[] = {
      {TarnInterface::kNone, 1, [] { return TarnLabelAlloc("abc", 3, &label); }},
      {TarnInterface::kNone, 1, [] { return TarnExLabelAlloc(2, "h", 1, nullptr, 0, &extended); }},
      {TarnInterface::kDevice, 1, readLabel},
      {TarnInterface::kLegacy, 1, readLabel},
      {TarnInterface::kDevice, 1, readReset},
      {TarnInterface::kDevice, 2, readReset},
  };
  for (const auto& c : kCases) {
    KernelSetup setup = On(c.interface);
    setup.taskLabel = ByteVector{1, 0, 'x'};
    setup.resetFile = {0, 0, "/data/x", std::nullopt};
    const Simulation simulation(setup);
    failingAllocation = c.allocation;
    EXPECT_EQ(2u, c.run());
    EXPECT_EQ(0, failingAllocation);
  }
}

}  // namespace
}  // namespace Quill
