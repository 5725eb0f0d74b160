// SPDX-License-Identifier: Apache-2.0

// How JAR signatures are verified is in transcripts/jar.txt.

#include <gtest/gtest.h>
#include <ziparchive/zip_archive.h>

#include <quillon/manifest_mf.h>

#include "tests/support/opened_package.h"

namespace Quill {

TEST(ManifestMf, ReadsSections) {
  const struct {
    std::string text;
    std::vector<ManifestMf::Section> sections;
    std::string error = {};  // none: the text is good
  } kCases[] = {
      {"A: 1\r\nB: 2\r\n\r\nC: 3\r\n\r\n", {{{"A", "1"}, {"B", "2"}}, {{"C", "3"}}}},
      {"A: 1\nB: 2\n\nC: 3\n\n", {{{"A", "1"}, {"B", "2"}}, {{"C", "3"}}}},
      {"A: 1\rB: 2\r\rC: 3\r\r", {{{"A", "1"}, {"B", "2"}}, {{"C", "3"}}}},
      {"A: 1\n\rB: 2\n\r\n\rC: 3\n\r\n\r", {{{"A", "1"}, {"B", "2"}}, {{"C", "3"}}}},
      {"A: 1\n\nB: 2\n", {{{"A", "1"}}}},  // a section without a blank line is dropped
      {"A: 1", {}},
      {"\n\n  \nA: 1\n\n\n\r\n\nB: 2\n\n", {{{"A", "1"}}, {{"B", "2"}}}},
      {"A: 1\n 2\n  3\n\n", {{{"A", "12 3"}}}},  // a continuation drops one space
      {"A: 1\nA: 2\n\n", {{{"A", "2"}}}},
      {"A:  1: 2 \n\n", {{{"A", " 1: 2 "}}}},
      {"A: 1\nB\nC: 2\n\n", {{{"A", "1"}, {"B\nC", "2"}}}},  // only a colon ends a name
      {"A: \nB: 2\n\n", {{{"B", "2"}}}},                     // an empty value is dropped
      {"A:\nBC: 2\n\n", {{{"C", "2"}}}},                     // a colon and LF skip a character
      {"A:\r\nBC: 2\r\n\r\n", {{{"BC", "2"}}}},
      {"A:\r\n 1\r\n\r\n", {{{"A", "1"}}}},
      {"A: \n\n", {{}}},
      {std::string("A: 1\0B: 2\n\n", 11), {{{"A", "1"}, {"B", "2"}}}},
      // An error keeps the sections before it.
      {"A: 1\n\nB:\xe9\n\n", {{{"A", "1"}}}, "P_COLON: unexpected 0xe9 after colon: \xe9\n"},
      {std::string("B\0C: 2\n\n", 8), {}, "P_KEY: unexpected end of file after key 'B'\n"},
      // The character after a last colon is the end of the text, so the message stops there.
      {"A:", {}, "P_COLON: unexpected 0x00 after colon: ~\n"},
  };
  LogCapture log;
  ManifestMf manifest;  // each load replaces what the one before has read
  for (const auto& [text, sections, error] : kCases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(error.empty(), manifest.load(text));
    EXPECT_EQ(error.empty(), static_cast<bool>(manifest));
    EXPECT_EQ(sections, manifest.getSections());
    EXPECT_EQ(error.empty() ? "" : "E Parse manifest: Error: " + error, log.Take());
  }
}

TEST(EntryDigests, AreCheckedForEachFormOfAnEntry) {
  const ByteVector kDex = {'d', 'e', 'x'};
  const std::string kImpl = " verifyFileHashImpl: ";
  const std::string kMismatch = "I" + kImpl + "Not verified file from manifest: ";
  const TempFolder folder;
  const std::string same = folder.Write("1", kDex), other = folder.Write("2", {'d', 'e', 'y'});
  JarOptions options;
  options.editManifest = [](std::string& text) {
    text +=
        "Name: sha512\r\nSHA-512-Digest: AAAA\r\n\r\nName: several\r\n"
        "SHA-256-Digest: nQ+/k0n2RvFDUHLysCEghHUu9GAb1rAS+75htsXgOTA=\r\n"
        "SHA1-Digest: AAAA\r\n\r\n";
  };
  // A v2 package's own manifest counts where it lists an entry. The skipped names are for v1 only.
  const ByteVector listing = Wire().Text("A: 1\n\nName: META-INF/CERT.SF\nSHA1-Digest: AAAA\n\n");
  PackageBuilder jar, whole;
  jar.Manifest().Entry("classes.dex", kDex, Compression::kDeflated).JarSignature(options);
  for (const char* name : {"sha512", "several", "unlisted"}) jar.Entry(name, kDex);
  for (const char* name : {"classes.dex", "META-INF/CERT.SF", "unlisted"}) whole.Entry(name, kDex);
  const Fd v1File = MemoryFile(jar.Build());
  const Fd v2File =
      MemoryFile(whole.Manifest().Entry("META-INF/MANIFEST.MF", listing).V2().Build());
  LogCapture log;
  Apk v1(v1File.GetFd(), /*ignoreHalyxFilter=*/true), v2(v2File.GetFd(), true);
  ASSERT_TRUE(v1.IsGoodApk() && v2.IsGoodApk());
  log.Take();

  // What a call logs, which must be nothing exactly when it succeeds.
  const auto logOf = [&](bool good) { return (good ? "good" : "") + log.Take(); };
  const auto byEntry = [&](Apk& apk, const std::string& name) {
    ZipEntry entry{};
    return logOf(apk.FindEntry(name, &entry) == 0 && apk.VerifyFileHash(name, &entry));
  };
  for (const std::string& name : {std::string("classes.dex"), std::string("classes2.dex"),
                                  std::string(), std::string(65536, 'n')}) {
    EXPECT_EQ("good", logOf(v1.VerifyFileHash(name))) << name;
  }
  EXPECT_EQ("good", logOf(v1.VerifyFileHash("classes.dex", same)));
  EXPECT_EQ("good", logOf(v1.VerifyFileHash("META-INF/CERT.RSA", "/nowhere")));
  EXPECT_EQ("good", logOf(v2.VerifyFileHash("classes.dex", same)));
  EXPECT_EQ("good", byEntry(v1, "classes.dex"));
  EXPECT_EQ("good", byEntry(v2, "unlisted"));
  EXPECT_EQ("E" + kImpl + "Can't find file in META-INF/MANIFEST.MF: unlisted\n",
            byEntry(v1, "unlisted"));
  EXPECT_EQ(kMismatch + "classes.dex\n", logOf(v1.VerifyFileHash("classes.dex", other)));
  EXPECT_EQ(
      "E Can't open file: /nowhere\nE" + kImpl + "Can't extract entry file in APK: classes.dex\n",
      logOf(v1.VerifyFileHash("classes.dex", "/nowhere")));
  EXPECT_EQ("E verifyData: Unsupported digest type: SHA-512-Digest\n" + kMismatch + "sha512\n",
            logOf(v1.VerifyFileHash("sha512")));
  EXPECT_EQ(kMismatch + "several\n", logOf(v1.VerifyFileHash("several")));
  EXPECT_EQ(kMismatch + "META-INF/CERT.SF\n", logOf(v2.VerifyFileHash("META-INF/CERT.SF")));
  EXPECT_EQ("I" + kImpl + "Not verified file in case empty manifest: classes.dex\n",
            logOf(v2.VerifyFileHash("classes.dex", other)));
  EXPECT_EQ("E" + kImpl + "Can't extract base file in APK: classes2.dex\n",
            logOf(v2.VerifyFileHash("classes2.dex", same)));
}

TEST(EntryDigests, SkipExactlySevenNames) {
  const LogCapture log;
  Apk apk(-1);
  std::string skipped;
  for (const char* name : {"CERT.RSA", "ANDROIDD.RSA", "SECUREST.RSA", "CERT.SF", "ANDROIDD.SF",
                           "SECUREST.SF", "MANIFEST.MF", "cert.sf", "CERT.DSA", "OTHER.SF"}) {
    skipped += apk.CanSkipValidation(std::string("META-INF/") + name) ? 's' : '-';
  }
  EXPECT_EQ("sssssss---", skipped);
}

}  // namespace Quill
