// SPDX-License-Identifier: Apache-2.0

// What the workflows log, and what they ask of the kernel, is in transcripts/workflows.txt.

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <quillon/apk.h>
#include <quillon/certificate.h>
#include <quillon/entry_points.h>
#include <quillon/signing.h>
#include <quillon/tarn.h>

#include "crypto/hash.h"
#include "integrity/file_signing.h"
#include "simulator/simulator.h"
#include "tests/support/log_capture.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for --wrap
extern "C" {
void __real_free(void* block);
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
using tarnsim::KernelSetup;
using tarnsim::Simulation;

// In every test, the caller's descriptors stay open and no other does.
class Workflows : public testing::Test {
 protected:
  ~Workflows() override { EXPECT_EQ(descriptors_, OpenDescriptors()); }

  const Fd package_ = MemoryFile(PackageBuilder()
                                     .Manifest(ManifestXml("org.quillon.test", /*isHalyx=*/true))
                                     .Entry("lib/armeabi/a.so", {1})
                                     .V3()
                                     .Build());
  const Fd jar_ = MemoryFile(PackageBuilder().Entry("a", {1}).Build());
  const Fd outside_ = MemoryFile(PackageBuilder().Manifest().V3().Build());
  const Fd file_ = MemoryFile({'f', 'i', 'l', 'e'}), empty_ = MemoryFile({});
  LogCapture log_;

 private:
  const ptrdiff_t descriptors_ = OpenDescriptors();
};

TEST_F(Workflows, ErrnoIsThatOfTheCallThatFailed) {
  KernelSetup setup;
  setup.faults = {{Call::kSign, 0, EIO}};
  setup.labels = {{jar_.GetFd(), {0, 0}}};
  const Simulation simulation(setup);
  const struct {
    const Fd &archive, &target;
    uint32_t code;
    int error;
  } kCases[] = {{package_, file_, 0xFFFFFFFB, EIO},
                {jar_, file_, 0xFFFFFFFB, EIO},
                {package_, empty_, 0x10000, EINVAL},
                {file_, empty_, 0x10000, 0}};
  for (const auto& c : kCases) {
    errno = EILSEQ;  // of an earlier call
    EXPECT_EQ(c.code, TarnSign(c.archive.GetFd(), c.target.GetFd()));
    EXPECT_EQ(c.error, errno) << &c - kCases;
  }
  std::vector<uint8_t> hash;
  EXPECT_FALSE(CalcHashFile(empty_.GetFd(), 0, hash));
  EXPECT_EQ(EINVAL, errno);
}

TEST(CalcHashFile, DigestsTheWholeFile) {
  for (const size_t size : std::vector<size_t>{1, 4097, (1 << 20) - 1, 1 << 20, (3 << 20) + 1}) {
    ByteVector bytes(size), hash;
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i >> 12 ^ i);
    EXPECT_TRUE(CalcHashFile(MemoryFile(bytes).GetFd(), 0, hash));
    EXPECT_EQ(HashSHA1().Digest(bytes), hash) << size;
  }
}

TEST_F(Workflows, BootArtRefusesNegativeDescriptors) {
  for (const auto& [apk, art] : {std::pair(-1, file_.GetFd()), {package_.GetFd(), -1}}) {
    const Simulation simulation;
    RunOEMFuncForProvisionBootArt(apk, art);
    const std::string arguments = std::to_string(apk) + ", target_fd=" + std::to_string(art);
    EXPECT_THAT(log_.Take(), testing::HasSubstr("E TARN incorrect arguments: apk_fd=" + arguments +
                                                "~\nI TARN current integrity: 0x1~\n"));
  }
}

TEST_F(Workflows, AMissingTargetIsLoggedAndCertified) {
  const Simulation simulation;
  HxSign(package_.GetFd(), -1);
  EXPECT_THAT(log_.Take(), testing::EndsWith("E Can't get oat location from fd=-1\n"
                                             "I HxAddCertificate: HxNewCertificate return 0.\n"));
}

TEST_F(Workflows, OnlyTheFirstBitOfTheSignersFlagWaives) {
  for (const auto& [flag, call] : {std::pair(2, Call::kClose), {3, Call::kSign}}) {
    Simulation simulation;
    RunOEMFuncForApkSigner(outside_.GetFd(), nullptr, flag);
    EXPECT_EQ(call, simulation.TakeJournal().back().call);
  }
}

TEST_F(Workflows, APathWithoutAFolderIsTakenFromTheWorkingFolder) {
  const TempFolder folder;
  const std::string library = folder.Write("lib/arm/a.so", {1});
  const auto workingFolder = std::filesystem::current_path();
  std::filesystem::current_path(folder.Path());
  for (const char* path : {"base.apk", ""}) {
    Simulation simulation;
    Apk apk(package_.GetFd(), path);
    EXPECT_EQ(0u, TarnSignJni(apk, package_.GetFd(), nullptr));
    EXPECT_EQ(library, simulation.TakeJournal().back().file) << path;
  }
  std::filesystem::current_path(workingFolder);
}

}  // namespace
}  // namespace Quill
