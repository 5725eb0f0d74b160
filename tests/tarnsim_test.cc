#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/digest.h>
#include <sys/ioctl.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <regex>
#include <string>
#include <thread>

#include "integrity/entry_points.h"
#include "integrity/tarn_abi.h"
#include "simulator/simulator.h"
#include "tests/support/log_capture.h"
#include "tests/support/signing_key.h"
#include "tests/support/temp_file.h"
#include "tests/support/wire.h"

namespace Quill {
namespace {

using tarnsim::KernelSetup;
using tarnsim::Request;
using tarnsim::Simulation;

TEST(Tarnsim, RefusesWhatAKernelWould) {
  const ByteVector good = Wire().U16(0xFFFF).Bytes({2, 0, 0, 2}).Fill(20, 0xAA).Fill(46);
  const auto with = [&good](size_t offset, uint8_t byte) {
    ByteVector label = good;
    label[offset] = byte;
    return label;
  };
  // Its extra data would end on a page that cannot be read.
  ByteVector endless = with(70, 0xFF);
  endless[71] = 0xFF;
  const auto guarded = GuardedMapping(endless);
  const Fd file = MemoryFile({'f', 'i', 'l', 'e'});
  const auto fd = static_cast<uint32_t>(file.GetFd());
  const auto self = static_cast<uint32_t>(getpid());
  const auto sign = [](uint32_t target, const void* label) {
    const auto address = reinterpret_cast<uintptr_t>(label);
    return Wire().U32(1).U32(target).Fill(8).U64(address).Fill(14);
  };
  const auto badLabels = {with(2, 3), with(3, 1), with(5, 3), with(5, 0), with(26, 1)};
  const auto* const nowhere = reinterpret_cast<const void*>(8);
  struct Case {
    const char* name;
    uint32_t code;
    ByteVector record;
    int error;
  };
  std::vector<Case> cases = {
      {"signing", 0xC0266604, sign(fd, good.data()), 0},
      {"record size", 0xC0256604, sign(fd, good.data()), EINVAL},
      {"direction", 0x40266604, sign(fd, good.data()), EINVAL},
      {"no request", 0xC0266609, sign(fd, good.data()), ENOTTY},
      {"version", 0xC0266608, Wire().U32(2).U32(fd).Fill(30), EINVAL},
      {"reserved byte", 0xC0266608, Wire().U32(1).U32(fd).Fill(7).U8(1).Fill(22), EINVAL},
      {"no file", 0xC0266608, Wire().U32(1).U32(0xFFFFFFFF).Fill(30), EBADF},
      {"no label", 0xC0266604, sign(fd, nullptr), EFAULT},
      {"label nowhere", 0xC0266604, sign(fd, nowhere), EFAULT},
      {"label half there", 0xC0266604, sign(fd, guarded->Data()), EFAULT},
      {"no task", 0xC0266601, Wire().U32(1).U32(0x7FFFFFFF).Fill(30), ESRCH},
      {"small buffer", 0xC0266602, Wire().U32(1).U32(self).Fill(16).U32(257).Fill(10), EINVAL},
      {"buffer nowhere", 0xC0266602, Wire().U32(1).U32(self).Fill(8).U64(8).U32(258).Fill(10),
       EFAULT},
      {"small path buffer", 0xC0266603, Wire().U32(1).U32(self).Fill(28).U16(4095), EINVAL},
      {"path buffer nowhere", 0xC0266603, Wire().U32(1).U32(self).Fill(20).U64(8).U16(4096),
       EFAULT},
  };
  for (const ByteVector& label : badLabels) {
    cases.push_back({"malformed label", 0xC0266604, sign(fd, label.data()), EINVAL});
  }
  KernelSetup setup;
  setup.taskLabel = ByteVector{1, 0, 'x'};
  setup.resetFile = {0, 0, "/data/x", std::nullopt};
  const Simulation simulation(setup);
  const Fd device(open("/dev/task_integrity", O_RDWR));
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    errno = 0;
    EXPECT_EQ(c.error == 0 ? 0 : -1, ioctl(device.GetFd(), c.code, c.record.data()));
    EXPECT_EQ(c.error, errno);
  }
  EXPECT_EQ(-1, ioctl(device.GetFd(), 0xC0266601, nowhere));
  EXPECT_EQ(EFAULT, errno);
}

TEST(Tarnsim, SigningTakesAWritableFileAndATaskWithIntegrity) {
  const Fd file = MemoryFile({'f'});
  const ByteVector label = {0, 0};
  for (const uint32_t integrity : {0u, 0xFFFFFFFFu, 1u}) {
    KernelSetup setup;
    setup.interface = TarnInterface::kLegacy;
    setup.integrity = {integrity};
    if (integrity == 1) setup.readOnly = {"/"};
    const Simulation simulation(setup);
    EXPECT_EQ(-1, fcntl(file.GetFd(), 1124, label.data()));
    EXPECT_EQ(integrity == 1 ? EROFS : EPERM, errno);
    EXPECT_EQ(-1, fcntl(file.GetFd(), 1128, 0));
    EXPECT_EQ(-1, fcntl(file.GetFd(), 1127, 0));
    EXPECT_EQ(EINVAL, errno);
  }
}

TEST(Tarnsim, VerifyingGoesByTheFileAsItIsNow) {
  const ByteVector contents = {'f', 'i', 'l', 'e'};
  const struct {
    uint8_t algorithm;
    const EVP_MD* md;
  } kAlgorithms[] = {{2, EVP_sha1()}, {4, EVP_sha256()}, {6, EVP_sha512()}};
  const Simulation simulation;
  for (const auto& [algorithm, md] : kAlgorithms) {
    const Fd file = MemoryFile(contents);
    const ByteVector hash = DigestOf(md, contents);
    TarnExLabel* label = nullptr;
    TarnExLabelAlloc(algorithm, hash.data(), static_cast<uint16_t>(hash.size()), "x", 1, &label);
    EXPECT_EQ(0xFFFFFFC3, TarnVerifyFd(file.GetFd()));  // ENODATA
    EXPECT_EQ(0u, TarnSignFd(file.GetFd(), label));
    EXPECT_EQ(0u, TarnVerifyFd(file.GetFd()));
    EXPECT_EQ(1, pwrite(file.GetFd(), "F", 1, 0));
    EXPECT_EQ(0xFFFFFFB6, TarnVerifyFdSync(file.GetFd()));  // EBADMSG
    EXPECT_EQ(0u, TarnEditFd(file.GetFd()));
    EXPECT_EQ(0xFFFFFFC3, TarnVerifyFd(file.GetFd()));
    TarnExLabelFree(label);
  }
}

TEST(Tarnsim, StandsBeforeThe64BitNamesAndBehindNothingElse) {
  const Fd file = MemoryFile({'f'});
  struct statvfs64 info;
  KernelSetup setup;
  setup.readOnly = {"/memfd:quillon-test (deleted)"};
  {
    const Simulation simulation(setup);
    EXPECT_EQ(0, statvfs64("/dev/task_integrity", &info));
    EXPECT_EQ(0, fstatvfs64(file.GetFd(), &info));
    EXPECT_NE(0u, info.f_flag & ST_RDONLY);
    EXPECT_LE(0, Fd(open64("/dev/task_integrity", O_RDWR)).GetFd());
    EXPECT_EQ(nullptr, fopen64("/proc/self/integrity/value", "r"));
    EXPECT_EQ(-1, fcntl64(file.GetFd(), 1124, 0));
    EXPECT_EQ(EINVAL, errno);  // the machine's own answer: there is a device
  }
  EXPECT_EQ(-1, statvfs64("/dev/task_integrity", &info));
  EXPECT_EQ(0, fstatvfs64(file.GetFd(), &info));
  EXPECT_EQ(0u, info.f_flag & ST_RDONLY);
  EXPECT_EQ(-1, open("/dev/task_integrity", O_RDWR));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_EQ(-1, ioctl(file.GetFd(), 0xC0266608, nullptr));
  EXPECT_TRUE(errno == ENOTTY || errno == ENOSYS) << errno;  // an emulator's answer is the latter
}

TEST(Tarnsim, ThreadsUseTheKernelAtOnce) {
  Simulation simulation;
  std::thread threads[4];
  for (std::thread& thread : threads) {
    thread = std::thread([] {
      for (int n = 0; n < 50; ++n) {
        uint32_t value = 0;
        EXPECT_EQ(0u, TarnTaskGetIntegrity(0, &value));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(200u, simulation.TakeJournal().size());
}

// A run of the C program with the simulator before it: its exit status, output and journal.
class Preloaded : public testing::Test {
 protected:
  int Run(const std::string& settings, const std::string& arguments) {
    const std::string command = "env ASAN_OPTIONS=verify_asan_link_order=0 " QUILLON_PRELOAD
                                " TARNSIM_JOURNAL=" +
                                journal_ + " " + settings + " " QUILLON_TARN_CLIENT " " +
                                arguments + " >" + output_ + " 2>&1";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  static std::string Contents(const std::string& path) {
    const ByteVector bytes = ReadFile(path);
    return std::string(bytes.begin(), bytes.end());
  }

  TempFolder folder_;
  std::string journal_ = folder_.Path() + "/journal";
  std::string output_ = folder_.Path() + "/output";
};

TEST_F(Preloaded, AProgramAsksTheKernelWhatALinkedTestDoes) {
  const std::string apk = QUILLON_SAMPLES_DIR "/v3.apk";
  const std::string oat = folder_.Write("app.oat", {'o', 'a', 't'});
  const std::string vdex = folder_.Write("app.vdex", {'v', 'd', 'e', 'x'});
  if (setxattr(oat.c_str(), "user.tarn.label", "", 0, 0) != 0) GTEST_SKIP() << "no attributes here";
  const std::regex numbers("\"(fd|pid)\":[0-9]+,");
  for (const TarnInterface interface : {TarnInterface::kDevice, TarnInterface::kLegacy}) {
    std::string linked;
    KernelSetup setup;
    setup.interface = interface;
    setup.integrity = {0xFFFFFFFF, 2};
    Simulation simulation(setup);
    {
      const LogCapture log;
      RunOEMFuncForProvisionOat(OpenFileRO(apk)->GetFd(), OpenFileRO(oat)->GetFd(),
                                OpenFileRO(vdex)->GetFd());
    }
    for (const Request& request : simulation.TakeJournal()) linked.append(ToJson(request)) += '\n';

    unlink(journal_.c_str());
    const bool device = interface == TarnInterface::kDevice;
    ASSERT_EQ(0, Run(std::string("TARNSIM_INTEGRITY=ffffffff,2 TARNSIM_INTERFACE=") +
                         (device ? "device" : "legacy"),
                     "provision " + apk + " " + oat + " " + vdex));
    const std::string preloaded = Contents(journal_);
    EXPECT_EQ(std::regex_replace(linked, numbers, ""), std::regex_replace(preloaded, numbers, ""));
    const std::string sign =
        std::string("{\"request\":\"sign\",") +
        (device ? "\"interface\":\"device\",\"command\":\"0xc0266604\","
                : "\"interface\":\"legacy\",\"command\":\"1124\",") +
        "\"file\":\"" + oat +
        "\",\"label\":{\"algorithm\":\"sha1\",\"hash\":"
        "\"773af2456d4a0a39914400d023cd8a1c2faccbe6\",\"extra\":"
        "\"16c2e52936dd87b7455c85628658c6719e19017c7f93919e70be1a610d5b2d8e\"},"
        "\"result\":0,\"errno\":0}\n";
    EXPECT_NE(std::string::npos, std::regex_replace(preloaded, numbers, "").find(sign))
        << preloaded;
    EXPECT_EQ(104, getxattr(oat.c_str(), "user.tarn.label", nullptr, 0));
  }
}

TEST_F(Preloaded, ACProgramNeedsTheOneHeaderAlone) {
  const std::string file = folder_.Write("file", {'f', 'i', 'l', 'e'});
  if (setxattr(file.c_str(), "user.tarn.label", "", 0, 0) != 0)
    GTEST_SKIP() << "no attributes here";
  EXPECT_EQ(0, Run("TARNSIM_INTERFACE=device", "label " + file));
  EXPECT_EQ("72 65535 2\nsign 0\nverify ffffffb6\nedit 0\nverify ffffffc3\nclose 0\n",
            Contents(output_));
  EXPECT_EQ(0, Run("TARNSIM_INTERFACE=legacy TARNSIM_FAIL=sign:1:5,close:1:0:7", "label " + file));
  EXPECT_EQ("72 65535 2\nsign fffffffb\nverify ffffffc3\nedit 0\nverify ffffffc3\nclose 80000000\n",
            Contents(output_));
  EXPECT_EQ(
      0, Run("TARNSIM_INTERFACE=device TARNSIM_READ_ONLY=/x:" + folder_.Path(), "label " + file));
  EXPECT_EQ("72 65535 2\nsign 4\nverify ffffffc3\nedit 4\nverify ffffffc3\nclose 4\n",
            Contents(output_));
}

TEST_F(Preloaded, SettingsThatCannotBeUnderstoodEndTheProgram) {
  for (const std::string setting :
       {"TARNSIM_INTERFACE=both", "TARNSIM_INTEGRITY=1,x", "TARNSIM_TASK_LABEL=abc",
        "TARNSIM_RESET_FILE=/data/x", "TARNSIM_FAIL=signing:1:5", "TARNSIM_FAIL=sign:1"}) {
    EXPECT_EQ(2, Run("TARNSIM_INTERFACE=device " + setting, "label /dev/null"));
    const std::string start = "tarnsim: " + setting.substr(0, setting.find('='));
    EXPECT_EQ(start, Contents(output_).substr(0, start.size()));
  }
}

}  // namespace
}  // namespace Quill
