#include <gtest/gtest.h>
#include <unistd.h>
#include <ziparchive/zip_archive.h>

#include "apk/apk.h"
#include "tests/support/log_capture.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"

namespace Quill {
namespace {

const ByteVector kDex = {'d', 'e', 'x'};

LogLine Mismatch(const std::string& name) {
  return Info("verifyFileHashImpl: Not verified file from manifest: " + name + "\n");
}
LogLine Unlisted(const std::string& name) {
  return Error("verifyFileHashImpl: Can't find file in META-INF/MANIFEST.MF: " + name + "\n");
}
LogLine Unextractable(const std::string& name) {
  return Error("verifyFileHashImpl: Can't extract entry file in APK: " + name + "\n");
}

// The entry of that name, by the name, by its ZipEntry, and as the file at `path`.
enum class Form { kName, kEntry, kFile };

bool Verify(Apk& apk, Form form, const std::string& name, const std::string& path) {
  ZipEntry entry{};
  switch (form) {
    case Form::kName:
      return apk.VerifyFileHash(name);
    case Form::kEntry:
      EXPECT_EQ(0, apk.FindEntry(name, &entry));
      return apk.VerifyFileHash(name, &entry);
    default:
      return apk.VerifyFileHash(name, path);
  }
}

}  // namespace

TEST(EntryDigests, ThreeFormsOnBothRoads) {
  const TempFolder folder;
  const std::string same = folder.Write("same", kDex);
  const std::string other = folder.Write("other", {'d', 'e', 'y'});
  const std::string missing = folder.Path() + "/missing";

  JarOptions options;
  options.editManifest = [](std::string& text) {
    const std::string good = "SHA-256-Digest: nQ+/k0n2RvFDUHLysCEghHUu9GAb1rAS+75htsXgOTA=\r\n";
    text += "Name: sha512\r\nSHA-512-Digest: AAAA\r\n\r\n";
    text += "Name: several\r\n" + good + "SHA1-Digest: AAAA\r\n\r\n";
    text += "Name: nothing\r\nSHA-256-Digest: \r\n\r\n";
  };
  const auto content = [] { return PackageBuilder().Manifest().Entry("classes.dex", kDex); };
  const auto unlisted = [](PackageBuilder builder) {
    for (const char* name : {"sha512", "several", "nothing", "unlisted"}) builder.Entry(name, kDex);
    return builder;
  };
  const Fd v1File = MemoryFile(unlisted(content().JarSignature(options)).Build());
  const Fd v2File = MemoryFile(unlisted(content()).V2().Build());
  LogCapture log;
  Apk v1(v1File.GetFd(), /*ignoreHalyxFilter=*/true);
  Apk v2(v2File.GetFd(), /*ignoreHalyxFilter=*/true);
  ASSERT_TRUE(v1.IsGoodApk());
  ASSERT_TRUE(v2.IsGoodApk());
  log.Take();

  const struct {
    const char* rule;
    Apk& apk;
    Form form;
    std::string name, path;
    bool good;
    std::vector<LogLine> log;
  } kCases[] = {
      {"listed", v1, Form::kName, "classes.dex", "", true, {}},
      {"listed, entry", v1, Form::kEntry, "classes.dex", "", true, {}},
      {"listed, equal file", v1, Form::kFile, "classes.dex", same, true, {}},
      {"listed, other file", v1, Form::kFile, "classes.dex", other, false,
       Lines(Mismatch("classes.dex"))},
      {"listed, unreadable file", v1, Form::kFile, "classes.dex", missing, false,
       Lines(Error("Can't open file: " + missing + "\n"), Unextractable("classes.dex"))},
      {"absent from the archive", v1, Form::kName, "classes2.dex", "", true, {}},
      {"unlisted", v1, Form::kName, "unlisted", "", false, Lines(Unlisted("unlisted"))},
      {"unlisted, entry", v1, Form::kEntry, "unlisted", "", false, Lines(Unlisted("unlisted"))},
      {"unlisted, file", v1, Form::kFile, "unlisted", same, false, Lines(Unlisted("unlisted"))},
      {"listed without a digest", v1, Form::kName, "nothing", "", false,
       Lines(Unlisted("nothing"))},
      {"skipped", v1, Form::kName, "META-INF/CERT.SF", "", true, {}},
      {"skipped, file", v1, Form::kFile, "META-INF/CERT.RSA", missing, true, {}},
      {"a SHA-512 digest alone", v1, Form::kName, "sha512", "", false,
       Lines(Error("verifyData: Unsupported digest type: SHA-512-Digest\n"), Mismatch("sha512"))},
      {"of several digests the last name counts", v1, Form::kName, "several", "", false,
       Lines(Mismatch("several"))},
      {"v2, unlisted", v2, Form::kName, "classes.dex", "", true, {}},
      {"v2, entry", v2, Form::kEntry, "unlisted", "", true, {}},
      {"v2, equal file", v2, Form::kFile, "classes.dex", same, true, {}},
      {"v2, other file", v2, Form::kFile, "classes.dex", other, false,
       Lines(Info("verifyFileHashImpl: Not verified file in case empty manifest: classes.dex\n"))},
      {"v2, unreadable file", v2, Form::kFile, "classes.dex", missing, false,
       Lines(Error("Can't open file: " + missing + "\n"), Unextractable("classes.dex"))},
      {"v2, absent", v2, Form::kName, "classes2.dex", "", true, {}},
      {"v2, file of an absent entry", v2, Form::kFile, "classes2.dex", same, false,
       Lines(Error("verifyFileHashImpl: Can't extract base file in APK: classes2.dex\n"))},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.rule);
    EXPECT_EQ(c.good, Verify(c.apk, c.form, c.name, c.path));
    EXPECT_EQ(c.log, log.Take());
  }

  ZipEntry classes{};
  v2.FindEntry(std::string("classes.dex"), &classes);
  ZipEntry manifest{};
  v2.FindEntry(std::string("AndroidManifest.xml"), &manifest);
  EXPECT_FALSE(v2.VerifyFileHash("classes.dex", &manifest)) << "an entry of another name";
}

// A v2 package's own manifest counts where it lists an entry; the skipped names are for v1 alone.
TEST(EntryDigests, ListedEntriesOfAV2PackageAreCheckedToo) {
  const std::string manifest =
      "Manifest-Version: 1\n\nName: classes.dex\nSHA1-Digest: AAAA\n\n"
      "Name: META-INF/CERT.SF\nSHA1-Digest: AAAA\n\n";
  const Fd file = MemoryFile(PackageBuilder()
                                 .Manifest()
                                 .Entry("classes.dex", kDex)
                                 .Entry("META-INF/CERT.SF", {'x'})
                                 .Entry("META-INF/MANIFEST.MF", {manifest.begin(), manifest.end()})
                                 .V2()
                                 .Build());
  LogCapture log;
  Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
  EXPECT_TRUE(apk.IsGoodApk()) << "the whole-file signature is enough";
  log.Take();
  for (const char* name : {"classes.dex", "META-INF/CERT.SF"}) {
    EXPECT_FALSE(apk.VerifyFileHash(name));
    EXPECT_EQ(Lines(Mismatch(name)), log.Take());
  }
}

TEST(EntryDigests, SkipsExactlySevenNames) {
  const Fd file = MemoryFile(PackageBuilder().Manifest().V2().Build());
  LogCapture log;
  Apk apk(file.GetFd());
  for (const char* name :
       {"META-INF/CERT.RSA", "META-INF/ANDROIDD.RSA", "META-INF/SECUREST.RSA", "META-INF/CERT.SF",
        "META-INF/ANDROIDD.SF", "META-INF/SECUREST.SF", "META-INF/MANIFEST.MF"}) {
    EXPECT_TRUE(apk.CanSkipValidation(name)) << name;
  }
  for (const char* name : {"META-INF/cert.sf", "META-INF/CERT.DSA", "META-INF/OTHER.SF", "CERT.SF",
                           "META-INF/CERT.SF/", ""}) {
    EXPECT_FALSE(apk.CanSkipValidation(name)) << name;
  }
}

TEST(EntryDigests, AChangedClassesDexRefusesTheV1PackageForGood) {
  ByteVector package =
      PackageBuilder().Entry("classes.dex", kDex).Manifest().JarSignature({}).Build();
  const Fd good = MemoryFile(package);
  const size_t data = 30 + 11;  // local header and name of the first entry
  ASSERT_EQ('d', package[data]);
  const struct {
    const char* rule;
    size_t offset;
    uint8_t value;
    LogLine line;
  } kCases[] = {
      // libziparchive does not check the CRC of stored entries in memory.
      {"its bytes", data, 'D', Mismatch("classes.dex")},
      {"its local header", 30, 'C', Unextractable("classes.dex")},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.rule);
    ByteVector changed = package;
    changed[c.offset] = c.value;
    const Fd file = MemoryFile(changed);
    LogCapture log;
    Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
    log.Take();
    EXPECT_FALSE(apk.IsGoodApk());
    EXPECT_EQ(Lines(c.line, Error("Integrity not confirmed: classes.dex\n")), log.Take());
    EXPECT_FALSE(apk.IsGoodApk());
    EXPECT_EQ(Lines(), log.Take()) << "no second check";
  }
}

}  // namespace Quill
