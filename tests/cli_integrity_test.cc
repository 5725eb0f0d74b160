#include <sys/xattr.h>

#include "tests/support/tool_test.h"

namespace Quill {
namespace {

// The folder holds a sample package and its compiled files.
class IntegrityCommands : public ToolTest {
 protected:
  IntegrityCommands() {
    folder_.Write("base.apk", ReadFile(QUILLON_SAMPLES_DIR "/v3.apk"));
    folder_.Write("base.vdex", {'v', 'd', 'e', 'x'});
    folder_.Write("base.odex", {'o', 'a', 't'});
  }
};

class SimulatedCommands : public IntegrityCommands {
 protected:
  void SetUp() override {
    const std::string file = folder_.Path() + "/base.odex";
    if (setxattr(file.c_str(), "user.quillon.probe", "", 0, 0) != 0) {
      GTEST_SKIP() << "this file system keeps no labels";
    }
    if (QUILLON_EMULATED) GTEST_SKIP() << "an emulated program cannot run itself again";
  }
};

const std::string kLabel =
    "file sha1:773af2456d4a0a39914400d023cd8a1c2faccbe6 (the file now), key sha256:KEY";

TEST_F(SimulatedCommands, ProvisionLabelsAndCertifiesWhatLabelThenVerifies) {
  const std::string output = Run("quillon provision --simulate base.apk base.odex base.vdex");
  const std::string read = "read-integrity of task N = 0x1, done\n";
  const std::string certificate = ", identity org.quillon.sample.v3, 63 bytes, done\n";
  EXPECT_EQ(0u, output.find("What the simulated kernel was asked:\n  1. " + read +
                            "  2. sign DIR/base.odex, done\n  3. " + read +
                            "  4. sign DIR/base.vdex, done\n  5. certificate DIR/base.odex" +
                            certificate + "  6. certificate DIR/base.vdex" + certificate +
                            "Labels:\n  DIR/base.odex: " + kLabel + " (the package's now)\n"))
      << output;
  EXPECT_EQ("base.odex: verified by the kernel; label: " + kLabel +
                "\nWhat the simulated kernel was asked:\n  1. verify-sync DIR/base.odex, done\n"
                "exit 0\n",
            Run("quillon label --simulate=legacy base.odex"));
  folder_.Write("base.odex", {'o', 'a', 'T'});
  EXPECT_EQ(0u, Run("quillon label --simulate base.odex")
                    .find("base.odex: not verified by the kernel, Bad message (code 0xffffffb6); "
                          "label: file sha1:773af2456d4a0a39914400d023cd8a1c2faccbe6 (NOT the file "
                          "now), key sha256:KEY\n"));
}

TEST_F(SimulatedCommands, TheOthersAskInTheirOrder) {
  EXPECT_NE(std::string::npos, Run("quillon start-provision --simulate base.odex base.vdex")
                                   .find("  4. edit DIR/base.odex, done\n! I <TARN>: Enter to "));
  EXPECT_NE(std::string::npos, Run("quillon provision-art --simulate base.apk base.odex")
                                   .find("  2. sign DIR/base.odex, done\nLabels:\n"));
  EXPECT_NE(std::string::npos,
            Run("quillon sign-apk --simulate base.apk").find("  2. sign DIR/base.apk, done\n"));
  EXPECT_EQ(
      "integrity: 0x1\nlabel: none\nreset by: none\n"
      "What the simulated kernel was asked:\n"
      "  1. read-integrity of task N = 0x1, done\n"
      "  2. read-label of task N, refused: No such file or directory\n"
      "  3. read-reset-file of task N, refused: No such file or directory\nexit 0\n",
      Run("quillon task --simulate"));
}

// A machine without the subsystem: the same calls, and their failures are told.
TEST_F(IntegrityCommands, ReportFailuresByStatus) {
  EXPECT_NE(std::string::npos, Run("quillon provision base.apk base.odex base.vdex")
                                   .find("! E TARN can't read current integrity: 0x5\n"));
  EXPECT_EQ("! quillon: base.art: No such file or directory\nexit 3\n",
            Run("quillon provision-art base.apk base.art"));
  EXPECT_EQ(
      "base.odex: not verified by the kernel, this kernel has no integrity subsystem\nexit 1\n",
      Run("quillon label base.odex"));
  EXPECT_EQ(
      "! quillon: --simulate: none not in {device,legacy}\n"
      "! quillon: try \"quillon --help\"\nexit 2\n",
      Run("quillon label --simulate=none base.odex"));
}

// A pipe that nobody writes to would be waited for, and a device may never end.
TEST_F(IntegrityCommands, RefuseAllButRegularFiles) {
  EXPECT_EQ(0, std::system(("mkfifo " + folder_.Path() + "/pipe").c_str()));
  const std::pair<std::string, std::string> kFiles[] = {
      {"pipe", "not a regular file"},
      {"/dev/zero", "not a regular file"},
      {".", "is a directory"},
  };
  for (const auto& [file, obstacle] : kFiles) {
    const std::string lines[] = {
        "label " + file,
        "sign-apk " + file,
        "provision base.apk " + file + " base.vdex",
        "provision-art base.apk " + file,
        "start-provision base.odex " + file,
    };
    for (const std::string& line : lines) {
      EXPECT_EQ("! quillon: " + file + ": " + obstacle + "\nexit 3\n",
                Run("timeout 60 " QUILLON_TOOL " " + line))
          << line;
    }
  }
}

}  // namespace
}  // namespace Quill
