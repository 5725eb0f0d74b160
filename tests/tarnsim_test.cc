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
#include <string>
#include <thread>

#include "integrity/tarn.h"
#include "simulator/simulator.h"
#include "tests/support/signing_key.h"
#include "tests/support/temp_file.h"

namespace Quill {
namespace {

using tarnsim::KernelSetup;
using tarnsim::Simulation;

TEST(Tarnsim, RefusesWhatAKernelWould) {
  const Fd file = MemoryFile({'f', 'i', 'l', 'e'});
  const auto fd = static_cast<uint32_t>(file.GetFd());
  const ByteVector plain = {0, 0}, malformed = Wire().U16(0xFFFF).U32(3).Fill(66);
  const auto sign = [fd](const void* label) {
    return Wire().U32(1).U32(fd).Fill(8).U64(reinterpret_cast<uintptr_t>(label)).Fill(14);
  };
  struct Case {
    uint32_t code;
    ByteVector record;
    int error;
  } cases[] = {
      {0xC0266604, sign(plain.data()), 0},
      {0xC0256604, sign(plain.data()), EINVAL},  // another size of the record
      {0xC0266609, sign(plain.data()), ENOTTY},
      {0xC0266604, sign(malformed.data()), EINVAL},
      {0xC0266604, sign(nullptr), EFAULT},
      {0xC0266608, Wire().U32(2).U32(fd).Fill(30), EINVAL},
      {0xC0266608, Wire().U32(1).U32(0xFFFFFFFF).Fill(30), EBADF},
      {0xC0266601, Wire().U32(1).U32(0x7FFFFFFF).Fill(30), ESRCH},
      {0xC0266604, sign(plain.data()), EPERM},  // of a task without integrity
  };
  KernelSetup noIntegrity;
  noIntegrity.integrity = {0};
  for (Case& c : cases) {
    SCOPED_TRACE(&c - cases);
    const Simulation simulation(c.error == EPERM ? noIntegrity : KernelSetup());
    const Fd device(open("/dev/task_integrity", O_RDWR));
    errno = 0;
    EXPECT_EQ(c.error == 0 ? 0 : -1, ioctl(device.GetFd(), c.code, c.record.data()));
    EXPECT_EQ(c.error, errno);
  }
}

TEST(Tarnsim, VerifyingGoesByTheFileAsItIsNow) {
  const ByteVector contents = {'f', 'i', 'l', 'e'};
  const Simulation simulation;
  const std::pair<uint8_t, const EVP_MD*> kAlgorithms[] = {
      {2, EVP_sha1()}, {4, EVP_sha256()}, {6, EVP_sha512()}};
  for (const auto& [algorithm, md] : kAlgorithms) {
    const Fd file = MemoryFile(contents);
    const ByteVector hash = DigestOf(md, contents);
    TarnExLabel* label = nullptr;
    TarnExLabelAlloc(algorithm, hash.data(), static_cast<uint16_t>(hash.size()), "x", 1, &label);
    EXPECT_EQ(0u, TarnSignFd(file.GetFd(), label));
    EXPECT_EQ(0u, TarnVerifyFd(file.GetFd()));
    EXPECT_EQ(1, pwrite(file.GetFd(), "F", 1, 0));
    EXPECT_EQ(0xFFFFFFB6, TarnVerifyFdSync(file.GetFd()));  // EBADMSG
    EXPECT_EQ(0u, TarnEditFd(file.GetFd()));
    EXPECT_EQ(0xFFFFFFC3, TarnVerifyFd(file.GetFd()));  // ENODATA
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
    EXPECT_EQ(-1, fcntl64(file.GetFd(), 1124, 0));
    EXPECT_EQ(EINVAL, errno);  // the machine's own answer: there is a device
  }
  EXPECT_EQ(-1, statvfs64("/dev/task_integrity", &info));
  EXPECT_EQ(0, fstatvfs64(file.GetFd(), &info));
  EXPECT_EQ(0u, info.f_flag & ST_RDONLY);
  EXPECT_EQ(-1, open("/dev/task_integrity", O_RDWR));
  EXPECT_EQ(-1, ioctl(file.GetFd(), 0xC0266608, nullptr));
}

TEST(Tarnsim, ThreadsUseTheKernelAtOnce) {
  Simulation simulation;
  std::thread threads[4];
  for (std::thread& thread : threads) {
    thread = std::thread([] {
      uint32_t value = 0;
      for (int n = 0; n < 50; ++n) EXPECT_EQ(0u, TarnTaskGetIntegrity(0, &value));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(200u, simulation.TakeJournal().size());
}

// A run of the C program with the simulator before it: its exit status, output and journal.
class Preloaded : public testing::Test {
 protected:
  int Run(const std::string& settings) {
    const std::string command =
        "env ASAN_OPTIONS=verify_asan_link_order=0 " QUILLON_PRELOAD " TARNSIM_JOURNAL=" +
        folder_.Path() + "/journal " + settings + " " QUILLON_TARN_CLIENT " " + file_ + " >" +
        folder_.Path() + "/output 2>&1";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string Contents(const char* name) {
    const ByteVector bytes = ReadFile(folder_.Path() + name);
    return {bytes.begin(), bytes.end()};
  }

  TempFolder folder_;
  const std::string file_ = folder_.Write("file", {'f', 'i', 'l', 'e'});
};

TEST_F(Preloaded, ACProgramNeedsTheOneHeaderAlone) {
  if (setxattr(file_.c_str(), "user.tarn.label", "", 0, 0) != 0) GTEST_SKIP() << "no attributes";
  EXPECT_EQ(0, Run("TARNSIM_INTERFACE=device TARNSIM_INTEGRITY=ffffffff,2"));
  EXPECT_EQ("72 65535 2\nsign 0\nverify ffffffb6\nedit 0\nverify ffffffc3\nclose 0\n",
            Contents("/output"));
  const std::string journal = Contents("/journal");
  EXPECT_EQ(0u, journal.find("{\"request\":\"read-integrity\",\"interface\":\"device\",\"command\":"
                             "\"0xc0266601\",\"pid\":"))
      << journal;
  EXPECT_NE(
      std::string::npos,
      journal.find("\"file\":\"" + file_ + "\",\"label\":{\"algorithm\":\"sha1\",\"hash\":\"" +
                   std::string(40, '0') + "\",\"extra\":\"\"},\"result\":0,\"errno\":0}\n"))
      << journal;
  EXPECT_EQ(0, Run("TARNSIM_INTERFACE=legacy TARNSIM_FAIL=sign:1:5,close:1:0:7"));
  EXPECT_EQ("72 65535 2\nsign fffffffb\nverify ffffffc3\nedit 0\nverify ffffffc3\nclose 80000000\n",
            Contents("/output"));
  EXPECT_EQ(0, Run("TARNSIM_INTERFACE=device TARNSIM_READ_ONLY=/x:" + folder_.Path()));
  EXPECT_EQ("72 65535 2\nsign 4\nverify ffffffc3\nedit 4\nverify ffffffc3\nclose 4\n",
            Contents("/output"));
}

TEST_F(Preloaded, SettingsThatCannotBeUnderstoodEndTheProgram) {
  for (const std::string setting :
       {"TARNSIM_INTERFACE=both", "TARNSIM_INTEGRITY=1,x", "TARNSIM_TASK_LABEL=abc",
        "TARNSIM_RESET_FILE=/data/x", "TARNSIM_FAIL=signing:1:5", "TARNSIM_FAIL=sign:1"}) {
    EXPECT_EQ(2, Run("TARNSIM_INTERFACE=device " + setting));
    EXPECT_EQ(0u, Contents("/output").find("tarnsim: " + setting.substr(0, setting.find('='))));
  }
}

}  // namespace
}  // namespace Quill
