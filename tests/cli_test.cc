#include <algorithm>
#include <string>

#include "tests/support/package_builder.h"
#include "tests/support/tool_test.h"

namespace Quill {
namespace {

const ByteVector kDex = {'d', 'e', 'x', ' ', '0', '3', '5'};

PackageBuilder Package() { return PackageBuilder().Manifest().Entry("classes.dex", kDex); }

ByteVector JarSigned(void (*bend)(JarOptions&)) {
  JarOptions options;
  bend(options);
  return Package().JarSignature(options).Build();
}

ByteVector WithOtherDex(ByteVector package) {
  *std::search(package.begin(), package.end(), kDex.begin(), kDex.end()) = 'D';
  return package;
}

using Tool = ToolTest;

}  // namespace

TEST_F(Tool, NamesTheStepThatRefusedAPackage) {
  const std::pair<ByteVector, std::string> kCases[] = {
      // The XML parser complains in the log as well, under a tag of its own.
      {PackageBuilder().Manifest({'<', 'm', 'a', 'n', 'i', 'f', 'e', 's', 't'}).Build(),
       "package name unknown, AndroidManifest.xml is malformed "
       "(ParseAndroidManifest failed to init xml parser, error=0x80000001)"},
      {WithOtherDex(Package().V3().Build()),
       "v3, org.quillon.test, APK signing block did not verify (Can't verify digests of APK)"},
      {Package().Build(),
       "v1, org.quillon.test, neither a usable APK signing block nor a manifest (Can't extract "
       "manifest: Entry not found)"},
      {JarSigned([](auto& jar) { jar.apkSigned = "2"; }),
       "v1, org.quillon.test, signature file names an APK signing block that is missing (This APK "
       "was supposed to be signed with APK Signature Scheme v2, but no such signature was found.)"},
      {JarSigned([](auto& jar) { jar.editSignatureFile = [](auto& sf) { sf[60] ^= 1; }; }),
       "v1, org.quillon.test, manifest does not match the signature file (Can't validate "
       "manifest.)"},
      {WithOtherDex(Package().JarSignature().Build()),
       "v1, org.quillon.test, classes.dex does not match the manifest (verifyFileHashImpl: Not "
       "verified file from manifest: classes.dex)"},
  };
  for (const auto& [package, verdict] : kCases) {
    folder_.Write("file", package);
    EXPECT_EQ("file: refused, " + verdict + "\nexit 1\n", Run("quillon verify file"));
  }
}

TEST_F(Tool, TellsInOneLineWhyItCannotReadAFile) {
  const ByteVector package = Package().V2().Build();
  folder_.Write("empty", {});
  folder_.Write("text", Wire().Text("longer than the record that ends an archive"));
  folder_.Write("cut", {package.begin(), package.end() - 23});
  EXPECT_EQ(
      "! quillon: none: No such file or directory\n"
      "! quillon: .: is a directory\n"
      "! quillon: empty: empty file\n"
      "! quillon: text: no usable ZIP archive (Invalid file)\n"
      "! quillon: cut: truncated or damaged, no usable ZIP archive (Invalid file)\n"
      "! quillon: pipe: not a regular file\n"
      "exit 3\n",
      Run("mkfifo pipe; quillon verify none . empty text cut pipe"));
}

TEST_F(Tool, ExitStatusTellsWhatHappened) {
  folder_.Write("good", Package().V3().Build());  // for SDK 24 and later
  folder_.Write("zip", PackageBuilder().Entry("a", {}).Build());
  folder_.Write("bad", Package().Build());
  const std::pair<std::string, std::vector<const char*>> kCases[] = {
      {"exit 0\n", {"verify good good", "verify --sdk 24 good", "verify --help", "--version"}},
      {"exit 1\n", {"verify none zip bad", "verify --sdk 23 good", "--version >/dev/full"}},
      {"exit 2\n", {"", "verify", "unknown good", "verify --unknown good", "verify -j 0 good"}},
      {"exit 2\n", {"verify --sdk -1 good", "verify --sdk 2147483648 good", "verify -j x good"}},
      {"exit 3\n", {"verify zip none good"}},
      {"exit 4\n", {"verify good zip", "verify --halyx-filter good"}},
  };
  for (const auto& [exit, lines] : kCases) {
    for (const std::string line : lines) {
      const std::string output = Run("quillon " + line);
      EXPECT_EQ(exit, output.substr(output.rfind("exit "))) << line;
    }
  }
  EXPECT_EQ("! quillon: cannot write to standard output: No space left on device\nexit 1\n",
            Run("quillon verify good none >/dev/full"));
  EXPECT_EQ("! quillon: good: verification broke off (stoi)\nexit 1\n",
            Run("export QUILLON_SDK=words; quillon verify good"));
  EXPECT_EQ("quillon " QUILLON_VERSION "\nexit 0\n", Run("quillon --version"));
}

TEST_F(Tool, WritesAJsonObjectPerFile) {
  folder_.Write("good", Package().JarSignature().Build());
  EXPECT_EQ(R"({"schemaVersion":1,"file":"good","isGoodZip":true,"isApk":true,"isGoodApk":true,)"
            R"("scheme":1,"packageName":"org.quillon.test","halyxPermissionRequired":false,)"
            R"("ignoreHalyxFilter":true,"manufacturerKeySha256":"KEY","manufacturerKeyLength":256,)"
            R"("log":[["I","Fallback to APK V1 signature. APK: DIR/good"]]})"
            "\n"
            R"({"schemaVersion":1,"file":"\u001b\u202e\\xff","isGoodZip":false,"isApk":false,)"
            R"("isGoodApk":false,"scheme":0,"packageName":"","halyxPermissionRequired":false,)"
            R"("ignoreHalyxFilter":true,"manufacturerKeySha256":null,"manufacturerKeyLength":0,)"
            R"("log":[],"error":"No such file or directory"})"
            "\n! quillon: \\x1b\\u{202e}\\xff: No such file or directory\nexit 3\n",
            Run("quillon verify --json good '\x1b\u202e\xff'"));
}

TEST_F(Tool, ShowsNothingRawThatSteersATerminal) {
  EXPECT_EQ(
      "! quillon: \\x09\\x1b[31m\\x7f\\|\\u{85}\\u{9f}\u00a0|\u2029\\u{202a}\\u{202e}\u202f|"
      "\u2065\\u{2066}\\u{2069}\u206a|\\xe2\\x80|\\xc1\\xbf|\\xe0\\x9f\\xbf|\\xed\\xa0\\x80|"
      "\\xf4\\x90\\x80\\x80|\\xff\\xc2: No such file or directory\nexit 3\n",
      Run("quillon verify '\t\x1b[31m\x7f\\|\u0085\u009f\u00a0|\u2029\u202a\u202e\u202f|"
          // The latter are incomplete, overlong, and beyond what UTF-8 encodes.
          "\u2065\u2066\u2069\u206a|\xe2\x80|\xc1\xbf|\xe0\x9f\xbf|\xed\xa0\x80|"
          "\xf4\x90\x80\x80|\xff\xc2'"));
}

TEST_F(Tool, KeepsFilesInOrderAndTheirLogLinesApart) {
  folder_.Write("good", Package().V2().Build());
  folder_.Write("zip", PackageBuilder().Entry("a", {}).Build());
  std::string files, verdicts, log;
  for (int i = 0; i < 40; ++i) {
    files += " good zip";
    verdicts +=
        "good: verified, v2, org.quillon.test, key sha256:KEY (63 bytes)\n"
        "zip: not verified, a plain ZIP or JAR, no package (Can't extract Android Manifest: Entry "
        "not found)\n";
    log +=
        "! good: I Use APK V2 signature. APK: DIR/good\n"
        "! good: I Found the best signature algorithm ID: 0x201\n"
        "! zip: I Can't extract Android Manifest: Entry not found\n";
  }
  EXPECT_EQ(verdicts + log + "exit 4\n", Run("quillon verify -v -j 8" + files));
}

}  // namespace Quill
