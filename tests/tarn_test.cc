// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <openssl/digest.h>
#include <unistd.h>

#include <cerrno>
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
using tarnsim::KernelSetup;
using tarnsim::Request;
using tarnsim::Simulation;

constexpr auto kLegacy = TarnInterface::kLegacy;

KernelSetup On(TarnInterface interface) {
  KernelSetup setup;
  setup.interface = interface;
  return setup;
}

KernelSetup WithLabel(const ByteVector& label) {
  KernelSetup setup;
  setup.taskLabel = label;
  return setup;
}

KernelSetup WithLabelText(const std::string& text) {
  KernelSetup setup = On(kLegacy);
  setup.labelText = text;
  return setup;
}

// In every test, the client logs nothing and leaves no descriptor open.
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

template <typename Record>
ByteVector BytesOf(const Record* record, size_t size) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(record);
  return {bytes, bytes + size};
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
  const ByteVector laidOut =
      Wire().U16(0xFFFF).U8(2).U16(0).U8(4).Fill(32, 0xAA).Fill(32).U16(5).Text("extra");
  EXPECT_EQ(laidOut, BytesOf(label, 77));
  TarnExLabelFree(label);
  std::string accepted;
  for (uint32_t algorithm = 0; algorithm < 40; ++algorithm) {
    for (const uint16_t length : std::vector<uint16_t>{0, 1, 64, 65}) {
      label = nullptr;
      if (TarnExLabelAlloc(algorithm, hash.data(), length, nullptr, 0, &label) == 0) {
        accepted += std::to_string(algorithm) + ":" + std::to_string(length) + " ";
      }
      TarnExLabelFree(label);
    }
  }
  EXPECT_EQ("2:1 2:64 4:1 4:64 6:1 6:64 ", accepted);
  EXPECT_EQ(1u, TarnExLabelAlloc(2, nullptr, 20, nullptr, 0, &label));
  EXPECT_EQ(1u, TarnExLabelAlloc(2, hash.data(), 20, nullptr, 1, &label));
  EXPECT_EQ(1u, TarnExLabelAlloc(2, hash.data(), 20, nullptr, 0, nullptr));
  EXPECT_EQ(1u, TarnSignFd(fd_, nullptr));
}

// The simulator reads the records by the same header as the client, so here they are literals.
TEST_F(Tarn, RecordsOfRequestsAreLaidOut) {
  KernelSetup setup = WithLabel({1, 0, 7});
  setup.resetFile = {0, 0, "p", {}};
  Simulation simulation(setup);
  TarnLabel* label;
  TarnResetFile* reset;
  EXPECT_EQ(0u, TarnSignFd(fd_, label_));  // it reads the integrity first
  EXPECT_EQ(0u, TarnEditFd(fd_));
  EXPECT_EQ(0u, TarnTaskGetIntegrityLabel(0, &label));
  EXPECT_EQ(0u, TarnGetResetFile(0, &reset));
  const auto labelAddress = reinterpret_cast<uintptr_t>(label);
  const Wire task = Wire().U32(1).U32(static_cast<uint64_t>(getpid())).Fill(8);
  const Wire file = Wire().U32(1).U32(static_cast<uint64_t>(fd_)).Fill(8);
  const std::pair<uint32_t, ByteVector> kRequests[] = {
      {0xC0266601, Wire(task).Fill(22)},
      {0xC0266604, Wire(file).U64(reinterpret_cast<uintptr_t>(label_)).Fill(14)},
      {0xC0266601, Wire(task).Fill(22)},
      {0xC0266605, Wire(file).Fill(22)},
      {0xC0266602, Wire(task).U64(labelAddress).U32(258).Fill(10)},
      {0xC0266603, Wire(task).Fill(20).U16(4096)},
  };
  std::vector<Request> journal = simulation.TakeJournal();
  ASSERT_EQ(std::size(kRequests), journal.size());
  Put(journal[5].record, 28, ByteVector(8));  // the address of the path's buffer
  for (size_t i = 0; i < journal.size(); ++i) {
    EXPECT_EQ(kRequests[i].first, journal[i].command);
    EXPECT_EQ(kRequests[i].second, journal[i].record) << i;
  }
  TarnLabelFree(label);
  TarnResetFileFree(reset);
}

// A refusal is the kernel's errno negated, which stays in errno although a release of memory
// changes it. EPERM looks like a device that cannot be opened.
TEST_F(Tarn, ErrnoStaysAsTheKernelLeftIt) {
  uint32_t (*const kCalls[])(int fd, const void* label) = {
      TarnSignFd,
      TarnSignFdEx,
      [](int fd, const void*) { return TarnEditFd(fd); },
      [](int fd, const void*) { return TarnCloseFd(fd); },
      [](int fd, const void*) { return TarnVerifyFdSync(fd); },
      [](int fd, const void*) { return TarnVerifyFd(fd); },
      [](int, const void*) {
        TarnLabel* out;
        return TarnTaskGetIntegrityLabel(0, &out);
      },
      [](int, const void*) {
        TarnResetFile* out;
        return TarnGetResetFile(0, &out);
      },
  };
  for (const int error : {EIO, EPERM}) {
    KernelSetup setup;
    for (const Call call : {Call::kSign, Call::kEdit, Call::kClose, Call::kVerifySync,
                            Call::kVerify, Call::kReadLabel, Call::kReadResetFile}) {
      setup.faults.push_back({call, 0, error});
    }
    const Simulation simulation(setup);
    for (const auto call : kCalls) {
      errno = EINTR;  // of an earlier call
      EXPECT_EQ(static_cast<uint32_t>(-error), call(fd_, label_));
      EXPECT_EQ(error, errno) << &call - kCalls;
    }
  }
}

TEST_F(Tarn, IntegrityIsReadAndWaitedFor) {
  constexpr uint32_t kPending = 0xFFFFFFFF, kUntouched = 0xABCDEF;
  const struct {
    std::vector<uint32_t> values;
    int pid;
    uint32_t wait, deviceCode, legacyCode, value;
    size_t readings;
  } kCases[] = {
      {{kPending, kPending, 0x12345678}, 0, 1, 0, 0, 0x12345678, 3},
      {{kPending, 1}, 0, 0xFFFFFFFE, 0, 0, kPending, 1},
      {{0xFFFFFFFE, 1}, getpid(), 1, 0, 0, 0xFFFFFFFE, 1},
      {{7}, 0x7FFFFFFF, 1, 0xFFFFFFFD, 0x10000, kUntouched, 1},
      {{7}, -1, 1, 1, 0x10000, kUntouched, 0},
      {{kPending}, 0, 1, 0xFFFFFFFB, 0x10000, kPending, 9},  // then it is refused
  };
  for (const auto& [values, pid, wait, deviceCode, legacyCode, value, readings] : kCases) {
    for (const TarnInterface interface : {TarnInterface::kDevice, kLegacy}) {
      KernelSetup setup = On(interface);
      setup.faults = {{Call::kReadIntegrity, 9, EIO}};
      setup.integrity = values;
      Simulation simulation(setup);
      uint32_t read = kUntouched;
      const uint32_t code = TarnTaskReadIntegrity(pid, wait, &read);
      EXPECT_EQ(interface == kLegacy ? legacyCode : deviceCode, code) << pid;
      EXPECT_EQ(value, read);
      EXPECT_EQ(readings, simulation.TakeJournal().size());
      EXPECT_EQ(1u, TarnTaskReadIntegrity(0, 1, nullptr));
    }
  }
}

TEST_F(Tarn, LabelsOfTasksAreReadFromTheDeviceOrAsText) {
  const std::string digits(600, 'a');
  const ByteVector longest = Wire().U16(256).Fill(256, 0xAA);
  ByteVector tooLong = longest;
  tooLong[0] = 1;  // a byte more than there is room for
  const struct {
    KernelSetup setup;
    int pid;
    uint32_t code;
    ByteVector bytes = {};
  } kCases[] = {
      {WithLabel(longest), 0, 0, longest},
      {WithLabel(tooLong), 0, 0x10000},
      {WithLabel(longest), -1, 1},
      {WithLabelText("5\nCAfe1\n"), 0, 0, {2, 0, 0xCA, 0xFE}},
      {WithLabelText("0\n"), 0, 0, {0, 0}},
      {WithLabelText("-1\n"), 0, 0},
      {WithLabelText("513 " + digits), 0, 0, longest},
      {WithLabelText("514 " + digits), 0, 0x10000},
      {WithLabelText("4 caxx"), 0, 0x10000},
      {WithLabelText("cafe"), 0, 1},
      {WithLabelText("2 ca"), -1, 0x10000},
  };
  for (const auto& [setup, pid, code, bytes] : kCases) {
    const Simulation simulation(setup);
    TarnLabel* label = nullptr;
    EXPECT_EQ(code, TarnTaskGetIntegrityLabel(pid, &label)) << Hex(bytes);
    EXPECT_EQ(bytes, label == nullptr ? ByteVector() : BytesOf(label, label->length + size_t{2}));
    TarnLabelFree(label);
  }
  KernelSetup setup = On(kLegacy);
  setup.valueText = "x";
  const Simulation simulation(setup);
  uint32_t value;
  EXPECT_EQ(0x10000u, TarnTaskGetIntegrity(0, &value));
}

TEST_F(Tarn, ResetFileIsCopiedWithItsPath) {
  const std::string longest(4095, 'p');
  KernelSetup setup;
  for (const auto& [length, copied] : std::initializer_list<std::pair<uint16_t, std::string>>{
           {4096, longest}, {5, "pppp"}, {0, ""}}) {
    setup.resetFile = {0x1122334455667788, 0x99AABBCC, longest, length};
    const Simulation simulation(setup);
    TarnResetFile* record = nullptr;
    EXPECT_EQ(0u, TarnGetResetFile(0, &record));
    ByteVector expected = Wire().U64(0x1122334455667788).U32(0x99AABBCC).U16(length).Text(copied);
    expected.resize(4110);
    EXPECT_EQ(expected, BytesOf(record, 4110)) << length;
    TarnResetFileFree(record);
  }
  setup.resetFile->pathLength = 4097;
  const Simulation simulation(setup);
  EXPECT_EQ(1u, TarnGetResetFile(0, nullptr));
  TarnResetFile* record;
  EXPECT_EQ(1u, TarnGetResetFile(-1, &record));
  EXPECT_EXIT(static_cast<void>(TarnGetResetFile(0, &record)), testing::KilledBySignal(SIGABRT),
              "");
}

}  // namespace
}  // namespace Quill
