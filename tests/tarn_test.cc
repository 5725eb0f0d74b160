// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <openssl/digest.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <string>
#include <utility>

#include <quillon/tarn.h>

#include "simulator/simulator.h"
#include "tests/support/log_capture.h"
#include "tests/support/signing_key.h"
#include "tests/support/temp_file.h"
#include "tests/support/wire.h"

namespace Quill {
namespace {

using tarnsim::Call;
using tarnsim::Fault;
using tarnsim::KernelSetup;
using tarnsim::Request;
using tarnsim::Simulation;

constexpr auto kDevice = TarnInterface::kDevice;
constexpr auto kLegacy = TarnInterface::kLegacy;

KernelSetup On(TarnInterface interface, std::vector<Fault> faults = {},
               std::vector<uint32_t> integrity = {1}) {
  KernelSetup setup;
  setup.interface = interface;
  setup.faults = std::move(faults);
  setup.integrity = std::move(integrity);
  return setup;
}

// Whatever a test does, the client logs nothing and leaves no descriptor behind.
class Tarn : public testing::Test {
 protected:
  Tarn() {
    const ByteVector hash = DigestOf(EVP_sha1(), {'f', 'i', 'l', 'e'});
    EXPECT_EQ(TARN_OK, TarnExLabelAlloc(2, hash.data(), 20, nullptr, 0, &label_));
  }
  ~Tarn() override {
    TarnExLabelFree(label_);
    EXPECT_EQ(descriptors_, OpenDescriptors());
    EXPECT_EQ("", log_.Take());
  }

  Fd file_ = MemoryFile({'f', 'i', 'l', 'e'});
  int fd_ = file_.GetFd();
  TarnExLabel* label_ = nullptr;

 private:
  LogCapture log_;
  ptrdiff_t descriptors_ = OpenDescriptors();
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

TEST_F(Tarn, LabelsAreCheckedAndLaidOut) {
  TarnLabel* plain = nullptr;
  EXPECT_EQ(0u, TarnLabelAlloc("abc", 3, &plain));
  EXPECT_EQ((ByteVector{3, 0, 'a', 'b', 'c'}), BytesOf(plain, 5));
  TarnLabelFree(plain);
  EXPECT_EQ(1u, TarnLabelAlloc(nullptr, 5, &plain));
  EXPECT_EQ(1u, TarnLabelAlloc("abc", 3, nullptr));

  const ByteVector hash(65, 0xAA);
  TarnExLabel* label = nullptr;
  EXPECT_EQ(0u, TarnExLabelAlloc(4, hash.data(), 32, "extra", 5, &label));
  EXPECT_EQ(ByteVector(
                Wire().U16(0xFFFF).U8(2).U16(0).U8(4).Fill(32, 0xAA).Fill(32).U16(5).Text("extra")),
            BytesOf(label, 77));
  TarnExLabelFree(label);
  const std::pair<uint32_t, uint32_t> kCases[] = {// algorithm, length of the hash
                                                  {2, 1},   {4, 64}, {6, 20}, {0, 20},
                                                  {1, 20},  {3, 20}, {5, 20}, {7, 20},
                                                  {34, 20}, {2, 0},  {2, 65}};
  for (const auto& c : kCases) {
    label = nullptr;
    EXPECT_EQ(
        &c - kCases < 3 ? 0u : 1u,
        TarnExLabelAlloc(c.first, hash.data(), static_cast<uint16_t>(c.second), nullptr, 0, &label))
        << &c - kCases;
    TarnExLabelFree(label);
  }
  EXPECT_EQ(1u, TarnExLabelAlloc(2, nullptr, 20, nullptr, 0, &label));
  EXPECT_EQ(1u, TarnExLabelAlloc(2, hash.data(), 20, nullptr, 1, &label));
  EXPECT_EQ(1u, TarnExLabelAlloc(2, hash.data(), 20, nullptr, 0, nullptr));
  EXPECT_EQ(1u, TarnSignFd(fd_, nullptr));
}

const struct FileCall {
  Call call;
  uint32_t (*run)(int fd, const void* label);
  uint32_t ioctlCode, fcntlCommand;
} kFileCalls[] = {
    {Call::kSign, TarnSignFd, 0xC0266604, 1124},
    {Call::kSign, TarnSignFdEx, 0xC0266604, 1124},
    {Call::kSign, TarnSignFdCommon, 0xC0266604, 1124},
    {Call::kEdit, [](int fd, const void*) { return TarnEditFd(fd); }, 0xC0266605, 1128},
    {Call::kClose, [](int fd, const void*) { return TarnCloseFd(fd); }, 0xC0266606, 1129},
    {Call::kVerifySync, [](int fd, const void*) { return TarnVerifyFdSync(fd); }, 0xC0266607, 1126},
    {Call::kVerify, [](int fd, const void*) { return TarnVerifyFd(fd); }, 0xC0266608, 1125},
};

TEST_F(TarnFile, CommandsReachTheKernelAsOneRequest) {
  const auto fd = static_cast<uint32_t>(fd_);
  for (const TarnInterface interface : {kDevice, kLegacy}) {
    for (const FileCall& c : kFileCalls) {
      SCOPED_TRACE(c.ioctlCode);
      Simulation simulation(On(interface));
      ASSERT_EQ(0u, TarnSignFd(fd_, label_));
      simulation.TakeJournal();
      EXPECT_EQ(0u, c.run(fd_, label_));
      const std::vector<Request> journal = simulation.TakeJournal();
      const Request& last = journal.back();
      const uint64_t address = c.call == Call::kSign ? reinterpret_cast<uintptr_t>(label_) : 0;
      ASSERT_EQ(c.call == Call::kSign || c.call == Call::kEdit ? 2u : 1u, journal.size());
      EXPECT_EQ(interface == kDevice ? c.ioctlCode : c.fcntlCommand, last.command);
      EXPECT_EQ(interface == kDevice ? 0 : address, last.argument);
      if (interface == kLegacy) continue;
      EXPECT_EQ(ByteVector(Wire().U32(1).U32(fd).Fill(8).U64(address).Fill(14)), last.record);
      EXPECT_TRUE(journal.size() == 1 || journal[0].command == 0xC0266601);
      EXPECT_TRUE(journal.size() == 1 || journal[0].record == ByteVector(TaskRecord().Fill(22)));
    }
  }
}

// Gates come before the kernel and in order, and a kernel's refusal is its errno negated, which
// stays in errno although releasing memory changes it.
TEST_F(TarnFile, EveryCallTellsWhatRefusedIt) {
  constexpr auto kNone = TarnInterface::kNone;
  const Fault unreadable = {Call::kReadIntegrity, 0, EIO};
  std::vector<Fault> refusals, silent;
  for (const Call call : {Call::kSign, Call::kEdit, Call::kClose, Call::kVerify, Call::kReadLabel,
                          Call::kReadResetFile}) {
    refusals.push_back({call, 0, EIO});
    silent.push_back({call, 0, 0, 7});
  }
  KernelSetup readOnly = On(kDevice, {unreadable});
  readOnly.readOnly = {"/memfd:quillon-test (deleted)"};
  const struct {
    const char* name;
    KernelSetup setup;
    const char* codes;  // of sign, edit, close, verify, and of reading integrity, label, reset file
  } kCases[] = {
      {"good, but for a label to verify", On(kDevice), "0 0 0 ffffffc3 0 0 0"},
      {"refused", On(kDevice, refusals), "fffffffb fffffffb fffffffb fffffffb 0 fffffffb fffffffb"},
      {"refused", On(kLegacy, refusals), "fffffffb fffffffb fffffffb fffffffb 0 10000 5"},
      {"no errno", On(kDevice, silent), "0 0 0 0 0 0 0"},
      {"no errno", On(kLegacy, silent), "80000000 80000000 80000000 80000000 0 1 5"},
      {"read-only", readOnly, "4 4 4 ffffffc3 fffffffb 0 0"},
      {"integrity 0", On(kDevice, {}, {0}), "3 3 0 ffffffc3 0 0 0"},
      {"integrity 0 after a wait", On(kLegacy, {}, {0xFFFFFFFF, 0}), "3 3 0 ffffffc3 0 0 5"},
      {"unreadable", On(kDevice, {unreadable}), "10000 10000 0 ffffffc3 fffffffb 0 0"},
      {"unreadable", On(kLegacy, {unreadable}), "10000 10000 0 ffffffc3 10000 0 5"},
      {"no device", On(kDevice, {{Call::kOpen, 0, EACCES}}),
       "10000 10000 ffffffff ffffffff ffffffff ffffffff ffffffff"},
      {"no device now", On(kDevice, {{Call::kOpen, 2, EACCES}}),
       "ffffffff ffffffff 0 ffffffc3 0 0 0"},
      {"no subsystem", On(kNone), "10000 10000 5 5 5 5 5"},
  };
  static uint32_t value;
  static TarnLabel* label;
  static TarnResetFile* reset;
  uint32_t (*const kCalls[])(int fd, const void* label) = {
      TarnSignFd,
      kFileCalls[3].run,
      kFileCalls[4].run,
      kFileCalls[6].run,
      [](int, const void*) { return TarnTaskGetIntegrity(0, &value); },
      [](int, const void*) { return TarnTaskGetIntegrityLabel(0, &label); },
      [](int, const void*) { return TarnGetResetFile(0, &reset); },
  };
  for (const auto& c : kCases) {
    std::string codes;
    for (const auto call : kCalls) {
      const Simulation simulation(c.setup);
      errno = EINTR;  // of an earlier call
      const uint32_t code = call(fd_, label_);
      const int error = errno;
      if (code == TARN_CANNOT_OPEN) {
        EXPECT_EQ(EACCES, error) << c.name;
      } else if (code > 0x80000000) {
        EXPECT_EQ(code, static_cast<uint32_t>(-error)) << c.name;
      }
      std::ostringstream text;
      text << (codes.empty() ? "" : " ") << std::hex << code;
      TarnLabelFree(std::exchange(label, nullptr));
      TarnResetFileFree(std::exchange(reset, nullptr));
      codes += text.str();
    }
    EXPECT_EQ(c.codes, codes) << c.name;
  }
}

TEST_F(TarnTask, IntegrityIsReadAndWaitedFor) {
  constexpr uint32_t kPending = 0xFFFFFFFF, kUntouched = 0xABCDEF;
  const struct {
    std::vector<uint32_t> values;
    int pid;
    uint32_t wait, deviceCode, legacyCode, value;
    size_t readings;
  } kCases[] = {
      {{0x12345678}, 0, 1, 0, 0, 0x12345678, 1},
      {{kPending, kPending, 1}, 0, 1, 0, 0, 1, 3},
      {{kPending, 1}, 0, 0xFFFFFFFE, 0, 0, kPending, 1},
      {{0xFFFFFFFE, 1}, 0, 1, 0, 0, 0xFFFFFFFE, 1},
      {{7}, getpid(), 1, 0, 0, 7, 1},
      {{7}, 0x7FFFFFFF, 1, 0xFFFFFFFD, 0x10000, kUntouched, 1},
      {{7}, -1, 1, 1, 0x10000, kUntouched, 0},
      {{kPending}, 0, 1, 0xFFFFFFFB, 0x10000, kPending, 9},  // then it is refused
  };
  for (const TarnInterface interface : {kDevice, kLegacy}) {
    for (const auto& c : kCases) {
      SCOPED_TRACE(&c - kCases);
      Simulation simulation(On(interface, {{Call::kReadIntegrity, 9, EIO}}, c.values));
      uint32_t value = kUntouched;
      EXPECT_EQ(interface == kDevice ? c.deviceCode : c.legacyCode,
                TarnTaskReadIntegrity(c.pid, c.wait, &value));
      EXPECT_EQ(c.value, value);
      EXPECT_EQ(c.readings, simulation.TakeJournal().size());
      EXPECT_EQ(1u, TarnTaskReadIntegrity(0, 1, nullptr));
    }
  }
}

TEST_F(TarnTask, LabelIsReadFromTheDevice) {
  KernelSetup setup;
  setup.taskLabel = Wire().U16(256).Fill(256, 0x5A);
  TarnLabel* label = nullptr;
  {
    Simulation simulation(setup);
    EXPECT_EQ(0u, TarnTaskGetIntegrityLabel(0, &label));
    EXPECT_EQ(setup.taskLabel, BytesOf(label, 258));
    const auto address = reinterpret_cast<uintptr_t>(label);
    const Request request = simulation.TakeJournal().at(0);
    EXPECT_EQ(0xC0266602, request.command);
    EXPECT_EQ(ByteVector(TaskRecord().U64(address).U32(258).Fill(10)), request.record);
    TarnLabelFree(label);
    EXPECT_EQ(1u, TarnTaskGetIntegrityLabel(-1, &label));
  }
  setup.taskLabel->at(0) = 1;  // a byte more than there is room for
  const Simulation simulation(setup);
  TarnLabel untouched;
  label = &untouched;
  EXPECT_EQ(0x10000u, TarnTaskGetIntegrityLabel(0, &label));
  EXPECT_EQ(&untouched, label);
}

TEST_F(TarnTask, LegacyFilesAreNumbersInText) {
  const std::string digits(600, 'a');
  const std::pair<std::string, std::pair<uint32_t, ByteVector>> kLabels[] = {
      {"5\nCAfe1\n", {0, {2, 0, 0xCA, 0xFE}}},
      {"-1\n", {0, {}}},
      {"513 " + digits, {0, Wire().U16(256).Fill(256, 0xAA)}},
      {"514 " + digits, {0x10000, {}}},
      {"4 caxx", {0x10000, {}}},
      {"cafe", {1, {}}},
  };
  for (const auto& [text, result] : kLabels) {
    KernelSetup setup = On(kLegacy);
    setup.labelText = text;
    setup.valueText = "x";
    const Simulation simulation(setup);
    TarnLabel* label = nullptr;
    EXPECT_EQ(result.first, TarnTaskGetIntegrityLabel(0, &label)) << text;
    EXPECT_EQ(result.second, BytesOf(label, result.second.size())) << text;
    TarnLabelFree(label);
    EXPECT_EQ(0x10000u, TarnTaskGetIntegrityLabel(-1, &label));
    uint32_t value;
    EXPECT_EQ(0x10000u, TarnTaskGetIntegrity(0, &value));
  }
}

TEST_F(TarnTask, ResetFileIsPassedOn) {
  const std::string longest(4095, 'p');
  const std::pair<uint16_t, std::string> kReplies[] = {{4096, longest}, {5, "pppp"}, {0, ""}};
  for (const auto& [length, copied] : kReplies) {
    KernelSetup setup;
    setup.resetFile = {0x1122334455667788, 0x99AABBCC, longest, length};
    Simulation simulation(setup);
    TarnResetFile* record = nullptr;
    EXPECT_EQ(0u, TarnGetResetFile(0, &record));
    ByteVector expected = Wire().U64(0x1122334455667788).U32(0x99AABBCC).U16(length).Text(copied);
    expected.resize(4110);
    EXPECT_EQ(expected, BytesOf(record, 4110)) << length;
    Request request = simulation.TakeJournal().at(0);
    EXPECT_EQ(0xC0266603, request.command);
    Put(request.record, 28, ByteVector(8));  // the buffer's address
    EXPECT_EQ(ByteVector(TaskRecord().Fill(20).U16(4096)), request.record);
    TarnResetFileFree(record);
  }
  KernelSetup setup;
  setup.resetFile = {0, 0, "/data/x", 4097};
  const Simulation simulation(setup);
  TarnResetFile* record;
  EXPECT_EQ(1u, TarnGetResetFile(0, nullptr));
  EXPECT_EQ(1u, TarnGetResetFile(-1, &record));
  EXPECT_EXIT(static_cast<void>(TarnGetResetFile(0, &record)), testing::KilledBySignal(SIGABRT),
              "");
}

}  // namespace
}  // namespace Quill
