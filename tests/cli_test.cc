// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cstring>
#include <random>
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

size_t DirectoryOffset(const ByteVector& package) {
  uint32_t offset;
  std::memcpy(&offset, &package[package.size() - 6], sizeof offset);
  return offset;
}

// Makes another name of that of the first entry in the central directory, AndroidManifest.xml.
ByteVector WithManifestRenamed(ByteVector package) {
  package[DirectoryOffset(package) + 46] ^= 1;
  return package;
}

using Tool = ToolTest;

}  // namespace

TEST_F(Tool, NamesTheStepThatRefusedAPackage) {
  const std::string kManifestMissing = "damaged, its AndroidManifest.xml is missing";
  ByteVector withoutMagic = Package().V2().Build();
  ByteVector withOtherSize = withoutMagic;
  const size_t directory = DirectoryOffset(withoutMagic);
  withoutMagic[directory - 1] ^= 1;
  withOtherSize[directory - 24] ^= 1;
  ByteVector withOtherHeader = Package().V2().Build();
  withOtherHeader[30] ^= 1;  // the name in the entry's own header
  const std::pair<ByteVector, std::string> kCases[] = {
      // The XML parser complains in the log as well, under a tag of its own.
      {PackageBuilder().Manifest({'<', 'm', 'a', 'n', 'i', 'f', 'e', 's', 't'}).Build(),
       "package name unknown, AndroidManifest.xml is malformed "
       "(ParseAndroidManifest failed to init xml parser, error=0x80000001)"},
      {withOtherHeader,
       "AndroidManifest.xml is damaged (Can't extract Android Manifest: Inconsistent information)"},
      // The signing block is known by its magic or by its sizes, a JAR signature by its list.
      {WithManifestRenamed(Package().V2().Build()), kManifestMissing},
      {WithManifestRenamed(withoutMagic), kManifestMissing},
      {WithManifestRenamed(withOtherSize), kManifestMissing},
      {WithManifestRenamed(Package().JarSignature().Build()), kManifestMissing},
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

// Whatever bit is changed in what leads to AndroidManifest.xml.
TEST_F(Tool, TakesNoDamagedPackageForAPlainArchive) {
  const std::pair<std::string, ByteVector> kPackages[] = {
      {"v2", Package().V2().Build()},
      {"jar", Package().JarSignature().Build()},
  };
  for (const auto& [name, package] : kPackages) {
    ByteVector changed = package;
    for (size_t bit = DirectoryOffset(package) * 8; bit < package.size() * 8; ++bit) {
      const auto mask = static_cast<uint8_t>(1 << bit % 8);
      changed[bit / 8] ^= mask;
      folder_.Write(name + "." + std::to_string(bit), changed);
      changed[bit / 8] ^= mask;
    }
    // A JAR signature leaves the central directory open.
    const std::string verdicts = name == "jar" ? "refused\nverified\n" : "refused\n";
    EXPECT_EQ(verdicts + "exit 0\n",
              Run("quillon verify " + name +
                  ".* 2>/dev/null | sed -E 's/[^:]*: ([a-z ]*),.*/\\1/' | sort -u"));
  }
}

// The v2 signature of `big` does not match what it covers; its JAR signature does, but must not
// count.
TEST_F(Tool, GivesNoVerdictWithoutTheMemoryForOne) {
  if (QUILLON_SANITIZED || QUILLON_EMULATED) GTEST_SKIP() << "takes too many addresses";
  const ByteVector package = Package().JarSignature().V2().Build();
  folder_.Write("good", package);
  WriteWithHole(folder_.Path() + "/big", package, 512 << 20);
  ByteVector noise(600000);
  std::generate(noise.begin(), noise.end(), std::minstd_rand());
  ByteVector bomb =
      PackageBuilder().Entry("AndroidManifest.xml", noise, Compression::kDeflated).Build();
  for (const size_t header : {size_t{22}, DirectoryOffset(bomb) + 24}) {
    Put(bomb, header, Wire().U32(512 << 20));  // the length that it declares
  }
  folder_.Write("bomb", bomb);
  EXPECT_EQ(
      "good: verified, v2, org.quillon.test, key sha256:KEY (63 bytes)\n"
      "! quillon: big: could not be mapped\n"
      "! quillon: bomb: could not be verified, out of memory\n"
      "exit 3\n",
      Run("ulimit -v 400000; quillon verify good big bomb"));
  EXPECT_EQ(
      R"({"schemaVersion":1,"file":"big","isGoodZip":true,"isApk":true,"isGoodApk":false,"scheme":0,)"
      R"("packageName":"org.quillon.test","halyxPermissionRequired":false,"ignoreHalyxFilter":true,)"
      R"("manufacturerKeySha256":null,"manufacturerKeyLength":0,"log":[["E","Can't map file: DIR/big"],)"
      R"(["I","Fallback to APK V1 signature. APK: DIR/big"]],"error":"could not be mapped"})"
      "\n! quillon: big: could not be mapped\nexit 3\n",
      Run("ulimit -v 400000; quillon verify --json big"));
}

TEST_F(Tool, TakesNamesLiterally) {
  const std::pair<std::string, std::string> kNames[] = {
      {"[]", "[]"},        {"[good]", "[good]"}, {"[a,b]", "[a,b]"}, {"{}", "{}"},
      {"%%", "%%"},        {"a,b", "a,b"},       {" ", " "},         {"++", "++"},
      {"-", "-"},          {"-x", "-x"},         {"--", "--"},       {"--json", "--json"},
      {"-5", "-5"},        {"verify", "verify"}, {"=", "="},         {"\"", R"("\"")"},
      {"x\ny", "x\\x0ay"}, {"\xff", "\\xff"},    {"a\\", "a\\"},     {"x:y", R"("x:y")"},
  };
  folder_.Write("good", Package().V2().Build());
  for (const auto& [name, shown] : kNames) {
    SCOPED_TRACE(name);
    folder_.Write(name, PackageBuilder().Entry("a", {}).Build());
    EXPECT_EQ("good: verified, v2, org.quillon.test, key sha256:KEY (63 bytes)\n" + shown +
                  ": not verified, a plain ZIP or JAR, no package (Can't extract Android Manifest: "
                  "Entry not found)\nexit 4\n",
              Run("quillon verify good -j 2 -- '" + name + "'"));
    EXPECT_EQ("1\nexit 0\n", Run("quillon label -- '" + name + "' | grep -c ' by the kernel'"));
  }
  EXPECT_EQ("! quillon: : No such file or directory\nexit 3\n", Run("quillon verify ''"));
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
  for (const std::string level : {"words", "", "-1", "30x", "2147483648"}) {
    const std::string refused = "! quillon: QUILLON_SDK is \"" + level +
                                "\", which is no SDK level: set it to a number such as 30, or "
                                "unset it\nexit 2\n";
    for (const char* command : {"verify good", "sign-apk good", "provision good zip zip"}) {
      EXPECT_EQ(refused, Run("export QUILLON_SDK=" + level + "; quillon " + command));
    }
  }
  EXPECT_EQ("good: verified, v3, org.quillon.test, key sha256:KEY (63 bytes)\nexit 0\n",
            Run("export QUILLON_SDK=words; quillon verify --sdk 30 good"));
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

TEST_F(Tool, ShowsNothingRawThatSteersATerminalOrIsNotSeen) {
  EXPECT_EQ(
      "! quillon: "
      "\\x09\\x1b[31m\\x7f\\|\\u{85}\\u{9f}\u00a0\u00ac\\u{ad}\u00ae|\u061b\\u{61c}|\u200a"
      "\\u{200b}\\u{200f}\u2010|\u2027\\u{2028}\\u{202e}\u202f|\u205f\\u{2060}\\u{2069}\u206a|"
      "\\u{feff}|\U000dffff\\u{e0000}\\u{e007f}\U000e0080|\\xe2\\x80|\\xc1\\xbf|\\xe0\\x9f\\xbf|"
      "\\xed\\xa0\\x80|\\xf4\\x90\\x80\\x80|\\xff\\xc2: No such file or directory\nexit 3\n",
      Run("quillon verify "
          "'\t\x1b[31m\x7f\\|\u0085\u009f\u00a0\u00ac\u00ad\u00ae|\u061b\u061c|\u200a"
          "\u200b\u200f\u2010|\u2027\u2028\u202e\u202f|\u205f\u2060\u2069\u206a|"
          "\ufeff|\U000dffff\U000e0000\U000e007f\U000e0080|"
          // The latter are incomplete, overlong, and beyond what UTF-8 encodes.
          "\xe2\x80|\xc1\xbf|\xe0\x9f\xbf|\xed\xa0\x80|\xf4\x90\x80\x80|\xff\xc2'"));
}

TEST_F(Tool, QuotesAPackageNameThatIsNone) {
  const std::pair<const char*, const char*> kNames[] = {
      {"Az_09.z", "Az_09.z"},
      {"x, key sha256:0", R"("x, key sha256:0")"},
      {R"(a", "b\)", R"("a\", \"b\\")"},
      {"a-b", R"("a-b")"},
      {"\x1b", R"("\x1b")"},
  };
  for (const auto& [name, shown] : kNames) {
    folder_.Write("file", PackageBuilder().Manifest(ManifestXml(name)).V2().Build());
    EXPECT_EQ("file: verified, v2, " + std::string(shown) + ", key sha256:KEY (63 bytes)\nexit 0\n",
              Run("quillon verify file"));
  }
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
