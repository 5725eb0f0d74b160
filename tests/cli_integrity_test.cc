// SPDX-License-Identifier: Apache-2.0

#include <sys/xattr.h>

#include <algorithm>
#include <csignal>

#include "tests/support/package_builder.h"
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
    "file sha1:773af2456d4a0a39914400d023cd8a1c2faccbe6 (matches the file), key sha256:KEY";

TEST_F(SimulatedCommands, ProvisionLabelsAndCertifiesWhatLabelThenVerifies) {
  const std::string output = Run("quillon provision --simulate base.apk base.odex base.vdex");
  const std::string read = "read-integrity of task N = 0x1, done\n";
  const std::string certificate = ", identity org.quillon.sample.v3, 63 bytes, done\n";
  EXPECT_EQ(0u, output.find("Requests to the simulated kernel:\n  1. " + read +
                            "  2. sign DIR/base.odex, done\n  3. " + read +
                            "  4. sign DIR/base.vdex, done\n  5. certificate DIR/base.odex" +
                            certificate + "  6. certificate DIR/base.vdex" + certificate +
                            "Labels:\n  DIR/base.odex: " + kLabel + " (matches the package)\n"))
      << output;
  EXPECT_EQ("base.odex: verified by the kernel; label: " + kLabel +
                "\nRequests to the simulated kernel:\n  1. verify-sync DIR/base.odex, done\n"
                "exit 0\n",
            Run("quillon label --simulate=legacy base.odex"));
  folder_.Write("base.odex", {'o', 'a', 'T'});
  EXPECT_EQ(0u, Run("quillon label --simulate base.odex")
                    .find("base.odex: not verified by the kernel, Bad message (code 0xffffffb6); "
                          "label: file sha1:773af2456d4a0a39914400d023cd8a1c2faccbe6 (does NOT "
                          "match the file), key sha256:KEY\n"));
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
      "Requests to the simulated kernel:\n"
      "  1. read-integrity of task N = 0x1, done\n"
      "  2. read-label of task N, refused: No such file or directory\n"
      "  3. read-reset-file of task N, refused: No such file or directory\nexit 0\n",
      Run("quillon task --simulate"));
}

constexpr char kNotSimulated[] =
    "! quillon: not run: libtarnsim.so does not answer, so nothing would be simulated\nexit 1\n";

// What is installed lies in a folder with a blank, at which the loader takes LD_PRELOAD apart.
TEST_F(SimulatedCommands, RunBehindTheSimulatorOrNotAtAll) {
  const std::string install = "preload='" QUILLON_PRELOAD
                              "'; simulator=${preload#LD_PRELOAD=}; from=${simulator%/*}; "
                              "mkdir -p 'in stalled'; rm -f 'in stalled'/*; "
                              "cp \"$from\"/libquillon.so* \"$from\"/libtarnsim.so 'in stalled'; "
                              "export LD_LIBRARY_PATH='in stalled'; ";
  const std::string marked = "export QUILLON_SIMULATED_RUN=1; ";
  const struct {
    std::string title;
    std::string preparation;
    std::string end;  // of the output
  } kCases[] = {
      {"whole", "", "  2. sign DIR/base.apk, done\n"},
      {"missing", "rm 'in stalled/libtarnsim.so'; ",
       "! quillon: cannot simulate: in stalled/libtarnsim.so: No such file or directory\nexit 1\n"},
      {"a pipe", "rm 'in stalled/libtarnsim.so'; mkfifo 'in stalled/libtarnsim.so'; ",
       "! quillon: cannot simulate: in stalled/libtarnsim.so: not a regular file\nexit 1\n"},
      {"damaged", "echo >'in stalled/libtarnsim.so'; ", kNotSimulated},
      {"another library", "cp \"$from/libhx.so\" 'in stalled/libtarnsim.so'; ", kNotSimulated},
      {"a stray mark", marked, kNotSimulated},
      {"not switched on", marked + "export LD_PRELOAD=\"$simulator\"; ", kNotSimulated},
      {"behind another library",
       marked + "export TARNSIM_INTERFACE=device LD_PRELOAD=\"$from/libhx.so $simulator\"; ",
       kNotSimulated},
  };
  for (const auto& [title, preparation, end] : kCases) {
    const std::string output =
        Run(install + preparation + "timeout 60 " QUILLON_TOOL " sign-apk --simulate base.apk");
    if (title == "whole") {
      EXPECT_NE(std::string::npos, output.find(end)) << output;
      continue;
    }
    EXPECT_EQ(output.size() - end.size(), output.rfind(end)) << title << "\n" << output;
    EXPECT_EQ(std::string::npos, output.find("TARN")) << title << "\n" << output;
  }
}

// A second run must not outlive the first, which a signal ends in any state. It waits here for an
// integrity value that never comes.
TEST_F(SimulatedCommands, EndWithTheSignalThatEndsTheTool) {
  const std::pair<const char*, int> kSignals[] = {
      {"INT", SIGINT}, {"TERM", SIGTERM}, {"HUP", SIGHUP}, {"KILL", SIGKILL}};
  for (const auto& [name, number] : kSignals) {
    const std::string output =
        Run("exec 2>/dev/null; mkdir -p tmp; export TMPDIR=$PWD/tmp TARNSIM_INTEGRITY=ffffffff; "
            "env --default-signal " QUILLON_TOOL
            " sign-apk --simulate base.apk & tool=$!; "
            "until child=$(cat /proc/$tool/task/$tool/children); child=${child%% *}; "
            "grep -qs TARNSIM_JOURNAL /proc/$child/environ; do sleep 0.01; done; sleep 0.1; "
            "kill -" +
            std::string(name) +
            " $tool; wait $tool; echo ended $?; for i in 1 2 3 4 5 6 7 8 9; do "
            "grep -qs 'State:.[^Z]' /proc/$child/status || break; sleep 0.1; done; "
            "[ $i -lt 9 ] || { echo child is left; kill -9 $child; }; ls tmp");
    EXPECT_EQ("ended " + std::to_string(128 + number) + "\nexit 0\n", output) << name;
  }
}

// The second run's status counts even where ended processes leave none.
TEST_F(SimulatedCommands, FailAlsoForACallerThatIgnoresTheEndOfProcesses) {
  const std::string output =
      Run("env --ignore-signal=CHLD " QUILLON_TOOL " label --simulate base.odex");
  EXPECT_EQ("exit 1\n", output.substr(output.rfind("exit "))) << output;
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

// The simulated kernel has verified no JAR, and the real one of a workstation does not even exist.
TEST_F(SimulatedCommands, TellWhenTheRulesLeaveNothingToLabel) {
  folder_.Write("other.apk", PackageBuilder().Manifest().Entry("classes.dex", {'d'}).V2().Build());
  folder_.Write("plain.jar", PackageBuilder().Entry("a", {}).Build());
  const std::string outside =
      "! quillon: nothing labelled: the package is outside the Halyx feature\nexit 4\n";
  const std::string jar =
      "! quillon: nothing labelled: a plain JAR, which the kernel does not verify\nexit 4\n";
  const std::pair<std::string, std::string> kCases[] = {
      {"provision --simulate other.apk base.odex base.vdex", outside},
      {"provision-art --simulate=legacy other.apk base.odex", outside},
      {"sign-apk --simulate other.apk", outside},
      {"sign-apk other.apk", outside},
      {"sign-apk --simulate --ignore-halyx other.apk", "! I <TARN>: Exit from ApkSigner\nexit 0\n"},
      {"sign-apk --simulate=legacy plain.jar", jar},
      {"sign-apk plain.jar", jar},
      {"provision --simulate plain.jar base.odex base.vdex",
       "! I <TARN>: Exit from ProvisionOat\nexit 1\n"},
      {"sign-apk base.odex", "! I <TARN>: Exit from ApkSigner\nexit 1\n"},
  };
  for (const auto& [line, end] : kCases) {
    const std::string output = Run("quillon " + line);
    EXPECT_EQ(end, output.substr(output.size() - std::min(output.size(), end.size()))) << line;
  }
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
