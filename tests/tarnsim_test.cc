// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/digest.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include <quillon/tarn.h>

#include "simulator/simulator.h"
#include "tests/support/signing_key.h"
#include "tests/support/temp_file.h"

namespace Quill {

TEST(Tarnsim, VerifyingGoesByTheFileAsItIsNow) {
  const ByteVector contents = {'f', 'i', 'l', 'e'};
  const std::pair<uint8_t, const EVP_MD*> kAlgorithms[] = {
      {2, EVP_sha1()}, {4, EVP_sha256()}, {6, EVP_sha512()}};
  for (const auto& [algorithm, md] : kAlgorithms) {
    const Fd file = MemoryFile(contents);
    const ByteVector hash = DigestOf(md, contents);
    TarnExLabel* label = nullptr;
    ASSERT_EQ(0u, TarnExLabelAlloc(algorithm, hash.data(), static_cast<uint16_t>(hash.size()), "x",
                                   1, &label));
    tarnsim::KernelSetup setup;
    setup.labels = {{file.GetFd(), {0xFF, 0xFF}}};  // the start of an extended label
    const tarnsim::Simulation simulation(setup);
    EXPECT_EQ(0xFFFFFFB6, TarnVerifyFd(file.GetFd()));  // EBADMSG
    EXPECT_EQ(0u, TarnSignFd(file.GetFd(), label));
    EXPECT_EQ(0u, TarnVerifyFd(file.GetFd()));
    EXPECT_EQ(1, pwrite(file.GetFd(), "F", 1, 0));
    EXPECT_EQ(0xFFFFFFB6, TarnVerifyFdSync(file.GetFd()));
    EXPECT_EQ(0u, TarnEditFd(file.GetFd()));
    EXPECT_EQ(0xFFFFFFC3, TarnVerifyFd(file.GetFd()));  // ENODATA
    label->algorithm = 1;
    EXPECT_EQ(0xFFFFFFEA, TarnSignFd(file.GetFd(), label));  // EINVAL
    TarnExLabelFree(label);
  }
}

// The library asks for no label there, so the request goes past it.
TEST(Tarnsim, NothingIsLabelledOnAReadOnlyFileSystem) {
  const Fd file = MemoryFile({});
  tarnsim::KernelSetup setup;
  setup.interface = tarnsim::TarnInterface::kLegacy;
  setup.readOnly = {"/memfd:quillon-test (deleted)"};
  const tarnsim::Simulation simulation(setup);
  const uint8_t emptyLabel[2] = {};
  EXPECT_EQ(-1, fcntl(file.GetFd(), kTarnFcntlSign, emptyLabel));
  EXPECT_EQ(EROFS, errno);
}

}  // namespace Quill
