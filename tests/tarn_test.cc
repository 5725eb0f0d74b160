// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <tuple>
#include <utility>

#include <quillon/tarn.h>

#include "integrity/libhx.h"
#include "simulator/simulator.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_file.h"
#include "tests/support/wire.h"

// What fortified programs call. The C library owns the names.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" int __open_2(const char* path, int flags);
extern "C" int __openat_2(int folder, const char* path, int flags);
// NOLINTEND(bugprone-reserved-identifier)

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

// In every test, the client logs nothing and leaves no descriptor open.
class Tarn : public testing::Test {
 protected:
  Tarn() {
    const uint8_t hash[20] = {};
    EXPECT_EQ(TARN_OK, TarnExLabelAlloc(2, hash, 20, nullptr, 0, &label_));
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
      if (TarnExLabelAlloc(algorithm, hash.data(), length, nullptr, 0, &label) != 0) continue;
      accepted += std::to_string(algorithm) + ":" + std::to_string(length) + " ";
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
  KernelSetup setup;
  setup.taskLabel = {1, 0, 7};
  setup.resetFile = {0, 0, "p", {}};
  Simulation simulation(setup);
  TarnLabel* label;
  TarnResetFile* reset;
  EXPECT_EQ(0u, TarnSignFd(fd_, label_));  // it reads the integrity first
  EXPECT_EQ(0u, TarnTaskGetIntegrityLabel(0, &label));
  EXPECT_EQ(0u, TarnGetResetFile(0, &reset));
  const auto labelAddress = reinterpret_cast<uintptr_t>(label);
  const Wire task = Wire().U32(1).U32(static_cast<uint64_t>(getpid())).Fill(8);
  const Wire file = Wire().U32(1).U32(static_cast<uint64_t>(fd_)).Fill(8);
  const std::pair<uint32_t, ByteVector> kRequests[] = {
      {0xC0266601, Wire(task).Fill(22)},
      {0xC0266604, Wire(file).U64(reinterpret_cast<uintptr_t>(label_)).Fill(14)},
      {0xC0266602, Wire(task).U64(labelAddress).U32(258).Fill(10)},
      {0xC0266603, Wire(task).Fill(20).U16(4096)},
  };
  std::vector<Request> journal = simulation.TakeJournal();
  ASSERT_EQ(std::size(kRequests), journal.size());
  Put(journal[3].record, 28, ByteVector(8));  // the address of the path's buffer
  for (size_t i = 0; i < journal.size(); ++i) {
    EXPECT_EQ(kRequests[i].first, journal[i].command);
    EXPECT_EQ(kRequests[i].second, journal[i].record) << i;
  }
  TarnLabelFree(label);
  TarnResetFileFree(reset);
}

// EPERM, which gives the code of a device that cannot be opened, is told apart by errno.
TEST_F(Tarn, ErrnoStaysAlthoughAReleaseOfMemoryChangesIt) {
  KernelSetup setup;
  setup.faults = {{Call::kReadLabel, 0, EPERM}, {Call::kReadResetFile, 0, EIO}};
  const Simulation simulation(setup);
  TarnLabel* label;
  EXPECT_EQ(TARN_CANNOT_OPEN, TarnTaskGetIntegrityLabel(0, &label));
  EXPECT_EQ(EPERM, errno);
  TarnResetFile* record;
  EXPECT_EQ(0xFFFFFFFB, TarnGetResetFile(0, &record));
  EXPECT_EQ(EIO, errno);
}

TEST_F(Tarn, OnlyTheLowestBitWaitsForTheIntegrity) {
  constexpr uint32_t kPending = 0xFFFFFFFF;
  for (const bool isLegacy : {false, true}) {
    KernelSetup setup = On(isLegacy ? kLegacy : TarnInterface::kDevice);
    setup.integrity = {kPending, 2};
    const Simulation simulation(setup);
    uint32_t value = 7;
    EXPECT_EQ(isLegacy ? 0x10000u : 1u, TarnTaskReadIntegrity(-1, 1, &value));
    EXPECT_EQ(1u, TarnTaskReadIntegrity(0, 1, nullptr));
    EXPECT_EQ(7u, value);
    EXPECT_EQ(0u, TarnTaskReadIntegrity(getpid(), 0xFFFFFFFE, &value));
    EXPECT_EQ(kPending, value);
  }
}

TEST_F(Tarn, TheLegacyFilesHoldNumbersAsText) {
  const std::string digits(600, 'a');
  const std::tuple<std::string, uint32_t, ByteVector> kLabels[] = {
      {"5\nCAfe1\n", 0, {2, 0, 0xCA, 0xFE}},
      {"0\n", 0, {0, 0}},
      {"-1\n", 0, {}},
      {"513 " + digits, 0, Wire().U16(256).Fill(256, 0xAA)},
      {"514 " + digits, 0x10000, {}},
      {"4 caxx", 0x10000, {}},
      {"cafe", 1, {}},
  };
  KernelSetup setup = On(kLegacy);
  setup.valueText = "x";
  for (const auto& [text, code, bytes] : kLabels) {
    setup.labelText = text;
    const Simulation simulation(setup);
    TarnLabel* label = nullptr;
    EXPECT_EQ(0x10000u, TarnTaskGetIntegrityLabel(-1, &label));
    EXPECT_EQ(code, TarnTaskGetIntegrityLabel(0, &label)) << text;
    EXPECT_EQ(bytes, label == nullptr ? ByteVector() : BytesOf(label, label->length + size_t{2}));
    TarnLabelFree(label);
    uint32_t value;
    EXPECT_EQ(0x10000u, TarnTaskGetIntegrity(0, &value));
  }
}

// Of labels and paths, the kernel says how long they are.
TEST_F(Tarn, LengthsFromTheDeviceAreChecked) {
  const std::string longest(4095, 'p');
  KernelSetup setup;
  setup.taskLabel = Wire().U16(256).Fill(256, 0xAA);
  const std::pair<uint16_t, std::string> kPaths[] = {{4096, longest}, {5, "pppp"}, {0, ""}};
  for (const auto& [length, copied] : kPaths) {
    setup.resetFile = {0x1122334455667788, 0x99AABBCC, longest, length};
    const Simulation simulation(setup);
    TarnResetFile* record = nullptr;
    EXPECT_EQ(0u, TarnGetResetFile(0, &record));
    ByteVector expected = Wire().U64(0x1122334455667788).U32(0x99AABBCC).U16(length).Text(copied);
    expected.resize(4110);
    EXPECT_EQ(expected, BytesOf(record, 4110)) << length;
    TarnResetFileFree(record);
    TarnLabel* label = nullptr;
    EXPECT_EQ(0u, TarnTaskGetIntegrityLabel(0, &label));
    EXPECT_EQ(*setup.taskLabel, BytesOf(label, 258));
    TarnLabelFree(label);
  }
  setup.resetFile->pathLength = 4097;
  setup.taskLabel->at(0) = 1;
  const Simulation simulation(setup);
  TarnLabel* label;
  EXPECT_EQ(0x10000u, TarnTaskGetIntegrityLabel(0, &label));
  EXPECT_EQ(1u, TarnTaskGetIntegrityLabel(-1, &label));
  TarnResetFile* record;
  EXPECT_EQ(1u, TarnGetResetFile(0, nullptr));
  EXPECT_EQ(1u, TarnGetResetFile(-1, &record));
  EXPECT_EXIT(static_cast<void>(TarnGetResetFile(0, &record)), testing::KilledBySignal(SIGABRT),
              "");
}

TEST_F(Tarn, TheSimulatedKernelSeesEveryWayToOpenItsFiles) {
  for (const auto& [interface, path] :
       {std::pair(TarnInterface::kDevice, kTarnDevice), std::pair(kLegacy, kTarnLegacyValue)}) {
    Simulation simulation(On(interface));
    const Fd files[] = {Fd(open(path, O_RDWR)), Fd(openat(-1, path, O_RDONLY | O_CLOEXEC)),
                        Fd(__open_2(path, O_WRONLY)), Fd(__openat_2(-1, path, O_RDONLY))};
    std::string seen;
    for (const Fd& file : files) {
      TarnRequest request;
      request.target = getpid();
      char text[9] = {};
      const bool isDevice = interface == TarnInterface::kDevice;
      seen += isDevice ? std::to_string(ioctl(file.GetFd(), kTarnIoctlReadIntegrity, &request))
                       : std::string(text, static_cast<size_t>(read(file.GetFd(), text, 9)));
    }
    EXPECT_EQ(interface == kLegacy ? "1\n1\n1\n1\n" : "0000", seen);
    std::vector<int> flags;
    for (const Request& request : simulation.TakeJournal()) flags.push_back(request.flags.value());
    EXPECT_EQ((std::vector<int>{O_RDWR, O_RDONLY | O_CLOEXEC, O_WRONLY, O_RDONLY}), flags);
  }
}

TEST_F(Tarn, TheSimulatedKernelTakesBytesBehindTheDigestAndSetsTheErrnoOfACertificate) {
  KernelSetup setup;
  setup.faults = {{Call::kCertificate, 1, EIO, -7}};
  Simulation simulation(setup);
  const ByteVector hash(64, 0xAA);
  TarnExLabel* label = nullptr;
  ASSERT_EQ(0u, TarnExLabelAlloc(TARN_SHA1, hash.data(), 64, nullptr, 0, &label));
  EXPECT_EQ(0u, TarnSignFd(fd_, label));
  TarnExLabelFree(label);
  EXPECT_THAT(ToJson(simulation.TakeJournal().back()), testing::HasSubstr("\"behindHash\":\"aa"));
  errno = 0;
  EXPECT_EQ(-7, HxNewCertificate(fd_, "", hash.data(), hash.size()));
  EXPECT_EQ(EIO, errno);
}

// The library asks for no label on a read-only file system, so the request goes past it.
TEST_F(Tarn, TheSimulatedKernelSignsNothingOnAReadOnlyFileSystem) {
  KernelSetup setup = On(kLegacy);
  setup.readOnly = {"/memfd:quillon-test (deleted)"};
  const Simulation simulation(setup);
  EXPECT_EQ(-1, fcntl(fd_, kTarnFcntlSign, label_));
  EXPECT_EQ(EROFS, errno);
}

}  // namespace
}  // namespace Quill
