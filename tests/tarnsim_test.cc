// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <openssl/digest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include <quillon/tarn.h>

#include "simulator/simulator.h"
#include "tests/support/signing_key.h"
#include "tests/support/temp_file.h"

namespace Quill {

TEST(Tarnsim, VerifyingGoesByTheFileAsItIsNow) {
  const ByteVector contents = {'f', 'i', 'l', 'e'};
  const tarnsim::Simulation simulation;
  const std::pair<uint8_t, const EVP_MD*> kAlgorithms[] = {
      {2, EVP_sha1()}, {4, EVP_sha256()}, {6, EVP_sha512()}};
  for (const auto& [algorithm, md] : kAlgorithms) {
    const Fd file = MemoryFile(contents);
    const ByteVector hash = DigestOf(md, contents);
    TarnExLabel* label = nullptr;
    ASSERT_EQ(0u, TarnExLabelAlloc(algorithm, hash.data(), static_cast<uint16_t>(hash.size()), "x",
                                   1, &label));
    EXPECT_EQ(0u, TarnSignFd(file.GetFd(), label));
    EXPECT_EQ(0u, TarnVerifyFd(file.GetFd()));
    EXPECT_EQ(1, pwrite(file.GetFd(), "F", 1, 0));
    EXPECT_EQ(0xFFFFFFB6, TarnVerifyFdSync(file.GetFd()));  // EBADMSG
    EXPECT_EQ(0u, TarnEditFd(file.GetFd()));
    EXPECT_EQ(0xFFFFFFC3, TarnVerifyFd(file.GetFd()));  // ENODATA
    TarnExLabelFree(label);
  }
}

TEST(Tarnsim, AnswersForItselfBesideAllSettings) {
  for (const auto interface : {tarnsim::TarnInterface::kDevice, tarnsim::TarnInterface::kLegacy}) {
    tarnsim::KernelSetup setup;
    setup.interface = interface;
    setup.faults = {{tarnsim::Call::kOpen, 1, EIO}, {tarnsim::Call::kReadIntegrity, 0, EIO}};
    tarnsim::Simulation simulation(setup);
    uint32_t value = 0;
    EXPECT_TRUE(tarnsim::TarnsimAnswerOnce(0xABCD0123));
    EXPECT_EQ(0u, TarnTaskReadIntegrity(0, 0, &value));
    EXPECT_EQ(0xABCD0123u, value);
    EXPECT_TRUE(simulation.TakeJournal().empty());
    EXPECT_NE(0u, TarnTaskReadIntegrity(0, 0, &value));  // the fault of the first that counts
    EXPECT_EQ(1u, simulation.TakeJournal().size());
  }
  EXPECT_FALSE(tarnsim::TarnsimAnswerOnce(1));
}

TEST(Tarnsim, StandsBeforeACProgramThatKnowsTheHeadersAlone) {
  const TempFolder folder;
  const std::string file = folder.Write("file", {'f', 'i', 'l', 'e'});
  if (setxattr(file.c_str(), "user.tarn.label", "", 0, 0) != 0) GTEST_SKIP() << "no attributes";
  const std::string command = "cd " + folder.Path() +
                              "; env ASAN_OPTIONS=verify_asan_link_order=0 " QUILLON_PRELOAD
                              " TARNSIM_INTERFACE=device TARNSIM_JOURNAL=journal "
                              "TARNSIM_FAIL=close:1:5 " QUILLON_TARN_CLIENT " " +
                              file +
                              " >output && grep -c '\"algorithm\":\"sha1\"' journal >>output";
  EXPECT_EQ(0, std::system(command.c_str()));
  const ByteVector output = ReadFile(folder.Path() + "/output");
  EXPECT_EQ(
      "72 65535 2\nAAAAAAAAAAAAAAAAAAAAAAAAAAA=\n"
      "sign 0\nverify ffffffb6\nedit 0\nverify ffffffc3\nclose fffffffb\n1\n",
      std::string(output.begin(), output.end()));
}

TEST(Tarnsim, WritesNothingRawThatSteersATerminal) {
  const TempFolder folder;
  const std::string command = "cd " + folder.Path() +
                              "; export ASAN_OPTIONS=verify_asan_link_order=0; "
                              "Client() { env \"$@\" " QUILLON_PRELOAD " " QUILLON_TARN_CLIENT
                              " / 2>>messages >/dev/null; }; "
                              "Client TARNSIM_INTERFACE='\x1b[2J\u202ex'; "
                              "Client TARNSIM_INTERFACE=device TARNSIM_JOURNAL='\x1b\u2066/j'";
  EXPECT_EQ(0, std::system(command.c_str()));
  const ByteVector bytes = ReadFile(folder.Path() + "/messages");
  const std::string messages(bytes.begin(), bytes.end());
  EXPECT_EQ(0u,
            messages.find("tarnsim: TARNSIM_INTERFACE: cannot understand \"\\x1b[2J\\u{202e}x\"\n"
                          "tarnsim: cannot write to the journal \\x1b\\u{2066}/j\n"))
      << messages;
}

}  // namespace Quill
