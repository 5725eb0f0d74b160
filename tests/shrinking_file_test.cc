// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"

namespace Quill {

// A package is cut as soon as the library has mapped it. A hole in front of its signing block makes
// the digest take far longer than that; with and without other files beside it, good and refused.
TEST(ShrinkingFile, CostsTheToolThatFilesVerdictAlone) {
  constexpr uint32_t kHole = QUILLON_EMULATED ? 32 << 20 : 512 << 20;
  const ByteVector package = PackageBuilder().Manifest().V2().Build();
  const TempFolder folder;
  folder.Write("good", package);
  WriteWithHole(folder.Path() + "/refused", package, kHole);
  for (const std::string options : {" verify", " verify -j 3"}) {
    WriteWithHole(folder.Path() + "/big", package, kHole);
    const std::string script =
        "cd " + folder.Path() + "; " QUILLON_TOOL + options +
        " good big refused none >out 2>&1 & pid=$!;"
        " until grep -q ' 00000000 .*/big$' /proc/$pid/maps; do kill -0 $pid || break; done;"
        " truncate -s 5000 big; wait $pid; test $? = 1 && cut -c1-48 out >start";
    ASSERT_EQ(0, std::system(script.c_str()));
    const ByteVector output = ReadFile(folder.Path() + "/start");
    EXPECT_EQ(
        "good: verified, v2, org.quillon.test, key sha256\n"
        "quillon: big: changed while it was read\n"
        "refused: refused, v2, org.quillon.test, APK sign\n"
        "quillon: none: No such file or directory\n",
        std::string(output.begin(), output.end()));
  }
}

}  // namespace Quill
