#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"

namespace Quill {

// A package is cut as soon as the library has mapped it. A hole in front of its signing block makes
// the digest take far longer than that; with and without other files beside it, good and refused.
TEST(ShrinkingFile, CostsTheToolThatFilesVerdictAlone) {
  constexpr uint32_t kHole = QUILLON_EMULATED ? 32 << 20 : 512 << 20;
  ByteVector package = PackageBuilder().Manifest().V2().Build();
  uint32_t directory;
  std::memcpy(&directory, &package[package.size() - 6], sizeof directory);
  uint32_t blockSize;
  std::memcpy(&blockSize, &package[directory - 24], sizeof blockSize);
  const auto block = static_cast<ptrdiff_t>(directory - 8 - blockSize);

  const TempFolder folder;
  folder.Write("good", package);
  Put(package, package.size() - 6, Wire().U32(directory + kHole));
  const auto writeWithHole = [&](const std::string& name) {
    const std::string path = folder.Write(name, {package.begin(), package.begin() + block});
    std::filesystem::resize_file(path, static_cast<uintmax_t>(block) + kHole);
    std::ofstream(path, std::ios::binary | std::ios::app)
        .write(reinterpret_cast<const char*>(&package[static_cast<size_t>(block)]),
               static_cast<ptrdiff_t>(package.size()) - block);
  };
  writeWithHole("refused");
  for (const std::string options : {" verify", " verify -j 3"}) {
    writeWithHole("big");
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
