#include "apk/apk.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <ziparchive/zip_archive.h>

#include <algorithm>

#include "tests/support/log_capture.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"

namespace Quill {
namespace {

using testing::UnorderedElementsAre;

const std::string kPath = "/memfd:quillon-test (deleted)";

XmlElement Permission(const char* element, const char* name) {
  return {element, {{"name", std::string(name)}}};
}

XmlElement MetaData(const char* name, std::variant<std::string, uint32_t> value) {
  return {"meta-data", {{"name", std::string(name)}, {"value", std::move(value)}}};
}

struct Facts {
  bool isGoodZip, isApk, isGoodApk;
  ApkSignatureScheme scheme;
};

bool operator==(const Facts& a, const Facts& b) {
  return a.isGoodZip == b.isGoodZip && a.isApk == b.isApk && a.isGoodApk == b.isGoodApk &&
         a.scheme == b.scheme;
}

Facts FactsOf(Apk& apk) {
  return {apk.IsGoodZip(), apk.IsApk(), apk.IsGoodApk(), apk.GetApkSignatureSchemeVersion()};
}

}  // namespace

TEST(Apk, StopsTheOpeningSequenceWhereItFails) {
  const auto signed3 = [](const ByteVector& manifest) {
    return PackageBuilder().Manifest(manifest).V3().Build();
  };
  const std::vector<LogLine> verified = Lines(Info("Use APK V3 signature. APK: " + kPath + "\n"),
                                              Info("Found the best signature algorithm ID: 0x201"));
  const struct {
    const char* rule;
    ByteVector package;
    bool waive;
    Facts facts;
    std::vector<LogLine> log;
  } kCases[] = {
      {"a plain ZIP",
       PackageBuilder().Entry("a", {1}).V3().Build(),
       true,
       {true, false, false, ApkSignatureScheme::kNone},
       Lines(Info("Can't extract Android Manifest: Entry not found\n"))},
      {"a JAR manifest that does not parse",
       PackageBuilder().Manifest().Entry("META-INF/MANIFEST.MF", {'N', 'a', 'm', 'e'}).V3().Build(),
       true,
       {true, true, false, ApkSignatureScheme::kNone},
       Lines(Error("Parse manifest: Error: P_KEY: unexpected end of file after key 'Name'\n"),
             Error("Can't load manifest: size=4\n"))},
      {"a manifest that is no binary XML",
       signed3({'<', 'm', 'a', 'n', 'i', 'f', 'e', 's', 't'}),
       true,
       {true, true, false, ApkSignatureScheme::kNone},
       Lines(Error("ParseAndroidManifest failed to init xml parser, error=0x80000001\n"),
             Error("Can't process Android Manifest.\n"))},
      {"an empty manifest",
       signed3({}),
       true,
       {true, true, false, ApkSignatureScheme::kNone},
       Lines(Error("ParseAndroidManifest failed to init xml parser, error=0x80000001\n"),
             Error("Can't process Android Manifest.\n"))},
      {"outside the feature",
       signed3(ManifestXml("org.quillon.test")),
       false,
       {true, true, false, ApkSignatureScheme::kNone},
       Lines(Info("HALYX permissions are absent.\n"))},
      {"outside the feature, waived",
       signed3(ManifestXml("org.quillon.test")),
       true,
       {true, true, true, ApkSignatureScheme::kV3},
       verified},
      {"inside the feature",
       signed3(ManifestXml("org.quillon.test",
                           {Permission("uses-permission", "com.vrk.android.SECURE_STORAGE")})),
       false,
       {true, true, true, ApkSignatureScheme::kV3},
       verified},
      {"waived by name",
       signed3(ManifestXml("com.google.android.webview")),
       false,
       {true, true, true, ApkSignatureScheme::kV3},
       verified},
      {"a longer name",
       signed3(ManifestXml("com.google.android.webview.x")),
       false,
       {true, true, false, ApkSignatureScheme::kNone},
       Lines(Info("HALYX permissions are absent.\n"))},
      {"nothing that verifies",
       PackageBuilder().Manifest().Build(),
       true,
       {true, true, false, ApkSignatureScheme::kJar},
       Lines(Info("Fallback to APK V1 signature. APK: " + kPath + "\n"),
             Error("Can't extract manifest: Entry not found\n"))},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.rule);
    const Fd file = MemoryFile(c.package);
    LogCapture log;
    Apk apk(file.GetFd(), c.waive);
    EXPECT_TRUE(c.facts == FactsOf(apk));
    EXPECT_EQ(c.log, log.Take());
    EXPECT_EQ(kPath, apk.GetPath());
    EXPECT_EQ(c.facts.isGoodApk, !apk.GetManufacturerKey().empty());
  }
}

TEST(Apk, ReadsPackageNameAndHalyxFactsFromTheManifest) {
  const auto manifest = [](std::vector<XmlElement> elements) {
    return ManifestXml("org.quillon.test", std::move(elements));
  };
  const struct {
    const char* rule;
    ByteVector xml;
    std::string packageName;
    bool required;
  } kCases[] = {
      {"no elements", manifest({}), "org.quillon.test", false},
      {"the permission used",
       manifest({Permission("uses-permission", "com.vrk.android.SECURE_STORAGE")}),
       "org.quillon.test", true},
      {"the permission declared",
       manifest({Permission("permission", "com.vrk.android.SECURE_STORAGE")}), "org.quillon.test",
       true},
      {"its other name",
       manifest({Permission("uses-permission",
                            "com.vrk.android.securestorage.permission.SECURE_STORAGE")}),
       "org.quillon.test", true},
      {"another permission", manifest({Permission("uses-permission", "android.permission.X")}),
       "org.quillon.test", false},
      {"names that only begin alike",
       BinaryXml({{"manifest", {{"packages", "a"}, {"package", "b"}}},
                  Permission("uses-permission-sdk-23", "com.vrk.android.SECURE_STORAGE"),
                  Permission("permission", "com.vrk.android.SECURE_STORAGE2")}),
       "b", false},
      {"another element", manifest({Permission("activity", "com.vrk.android.SECURE_STORAGE")}),
       "org.quillon.test", false},
      {"meta-data SS_META", manifest({MetaData("access", "SS_META")}), "org.quillon.test", true},
      {"meta-data HALYX_PROTECTED", manifest({MetaData("access", "HALYX_PROTECTED")}),
       "org.quillon.test", true},
      {"meta-data in lower case", manifest({MetaData("access", "halyx_protected")}),
       "org.quillon.test", false},
      {"meta-data of another name", manifest({MetaData("mode", "SS_META")}), "org.quillon.test",
       false},
      {"meta-data that is a number", manifest({MetaData("access", 7u)}), "org.quillon.test", false},
      {"a number passed over for a later string",
       manifest({{"meta-data", {{"name", "access"}, {"value", 7u}, {"value", "SS_META"}}}}),
       "org.quillon.test", true},
      {"once set it stays",
       manifest(
           {MetaData("access", "SS_META"), MetaData("access", "x"), Permission("permission", "x")}),
       "org.quillon.test", true},
      {"the first package name",
       BinaryXml(
           {{"manifest", {}}, {"manifest", {{"package", "b"}}}, {"manifest", {{"package", "c"}}}}),
       "b", false},
      {"no package name", BinaryXml({{"application", {}}}), "", false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.rule);
    const Fd file = MemoryFile(PackageBuilder().Manifest(c.xml).V2().Build());
    LogCapture log;
    Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
    EXPECT_EQ(c.packageName, apk.GetPackageName());
    EXPECT_EQ(c.required, apk.IsHalyxPermissionRequired());
    EXPECT_TRUE(apk.IsGoodApk());
  }
}

// A document that is cut short ends the scan: what came before counts, and nothing behind it is
// read.
TEST(Apk, AnswersEveryTruncationOfTheManifest) {
  const ByteVector xml = ManifestXml(
      "org.quillon.test", {Permission("uses-permission", "com.vrk.android.SECURE_STORAGE")});
  for (size_t size = 0; size < xml.size(); ++size) {
    const ByteVector cut(xml.begin(), xml.begin() + static_cast<ptrdiff_t>(size));
    const Fd file = MemoryFile(PackageBuilder().Manifest(cut).Build());
    LogCapture log;
    Apk apk(file.GetFd());
    EXPECT_FALSE(apk.IsGoodApk());
    EXPECT_EQ("", apk.GetPackageName()) << "the document's own size no longer fits";
  }
}

// Attribute records of no size, all at the same place, let a short document name one long text
// 65,535 times per element. What was found before the work became too much counts.
TEST(Apk, BoundsTheWorkThatAManifestAsksFor) {
  std::vector<XmlElement> elements(100, {"manifest", {{std::string(30000, 'x'), "y"}}});
  elements.push_back({"manifest", {{"package", "too.late"}}});
  ByteVector xml = BinaryXml(elements);
  const ByteVector startTag = Wire().U16(0x0102).U16(16);
  for (auto at = xml.begin();; ++at) {
    at = std::search(at, xml.end(), startTag.begin(), startTag.end());
    if (at == xml.end()) break;
    const auto attributeCount = at + 16 + 12;
    if (*attributeCount == 1) {
      Put(xml, static_cast<size_t>(attributeCount - 2 - xml.begin()), Wire().U16(0).U16(65535));
    }
  }
  const Fd file = MemoryFile(PackageBuilder().Manifest(xml).V2().Build());
  LogCapture log;
  Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
  EXPECT_TRUE(apk.IsGoodApk());
  EXPECT_EQ("", apk.GetPackageName());
}

TEST(Apk, OpensByDescriptorOrPath) {
  LogCapture log;
  Apk invalid(-5);
  EXPECT_FALSE(invalid.IsGoodZip());
  EXPECT_EQ(-5, invalid.GetFd());
  EXPECT_EQ(Lines(Error("Can't initialize Apk: need valid file descriptor or filename\n")),
            log.Take());
  Apk missing("/nowhere/at-all.apk");
  EXPECT_EQ(-1, missing.GetFd());
  EXPECT_EQ(Lines(Error("open('/nowhere/at-all.apk') failed: No such file or directory\n")),
            log.Take());

  const TempFolder folder;
  const std::string path = folder.Write("base.apk", PackageBuilder().Manifest().V2().Build());
  int ownFd;
  {
    Apk byPath(path.c_str());
    ownFd = byPath.GetFd();
    EXPECT_TRUE(byPath.IsGoodZip());
    EXPECT_EQ(path, byPath.GetPath());
  }
  EXPECT_EQ(-1, fcntl(ownFd, F_GETFD)) << "what the object opened it closes";

  const Fd fd(open(path.c_str(), O_RDONLY));
  { Apk named(fd.GetFd(), "/data/app/x.apk"); }
  EXPECT_NE(-1, fcntl(fd.GetFd(), F_GETFD)) << "what it was lent it leaves open";
  EXPECT_EQ("/data/app/x.apk", Apk(fd.GetFd(), "/data/app/x.apk").GetPath());

  log.Take();
  const std::string text = folder.Write("notes.txt", {'h', 'i'});
  Apk noZip(text.c_str());
  EXPECT_FALSE(noZip.IsGoodZip());
  EXPECT_EQ(Lines(Error("OpenArchiveFd(" + std::to_string(noZip.GetFd()) + ") [file: " + text +
                        "] returned: -3: Invalid file\n")),
            log.Take());
  EXPECT_EQ(-1, fcntl(noZip.GetFd(), F_GETFD));
}

TEST(Apk, ClosesWhatItOpenedWhenItThrows) {
  const TempFolder folder;
  const std::string path = folder.Write(
      "base.apk",
      PackageBuilder().Manifest(ManifestXml("com.google.android.webview")).V3().Build());
  LogCapture log;
  setenv("QUILLON_SDK", "R", 1);
  const int nextFd = dup(0);
  close(nextFd);
  EXPECT_THROW(Apk(path.c_str()), std::invalid_argument);
  unsetenv("QUILLON_SDK");
  EXPECT_EQ(-1, fcntl(nextFd, F_GETFD));
}

TEST(Apk, FindsExtractsAndIteratesEntries) {
  const ByteVector dex(5000, 'd');
  const Fd file = MemoryFile(PackageBuilder()
                                 .Manifest()
                                 .Entry("classes.dex", dex, Compression::kDeflated)
                                 .Entry("lib/a.so", {'a'})
                                 .Entry("lib/b.so", {'b'})
                                 .Entry("lib/c.txt", {'c'})
                                 .V2()
                                 .Build());
  LogCapture log;
  Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);

  ZipEntry entry;
  ByteVector bytes;
  EXPECT_EQ(0, apk.FindEntry(std::string("classes.dex"), &entry));
  EXPECT_EQ(0, apk.Extract(&entry, bytes));
  EXPECT_EQ(dex, bytes);
  EXPECT_EQ(0, apk.GetContents(&entry, bytes));
  EXPECT_EQ(0, apk.FindEntry(std::string("lib/a.so\0x", 10), &entry)) << "up to the first zero";
  EXPECT_NE(0, apk.FindEntry(std::string_view("lib/a.so\0x", 10), &entry));

  std::string text = "untouched";
  EXPECT_NE(0, apk.ExtractByName("lib/none.so", text));
  EXPECT_EQ("untouched", text);
  EXPECT_EQ(0, apk.ExtractByName("lib/b.so", text));
  EXPECT_EQ("b", text);

  void* cookie = nullptr;
  std::vector<std::string> names;
  ASSERT_EQ(0, apk.StartIteration(&cookie, "lib/", ".so"));
  for (std::string name; apk.Next(cookie, &entry, name) == 0;) names.push_back(name);
  apk.EndIteration(cookie);
  EXPECT_THAT(names, UnorderedElementsAre("lib/a.so", "lib/b.so"));

  EXPECT_EQ(-1, apk.GetContents(std::string("/nowhere/at-all"), bytes));
}

TEST(Apk, RefusesLengthsThatNoStreamCanHaveWithoutSettingMemoryAside) {
  ByteVector package =
      PackageBuilder().Entry("AndroidManifest.xml", {1, 2, 3}, Compression::kDeflated).Build();
  const ByteVector declared = Wire().U32(0xfffffffe);
  Put(package, 22, declared);  // in the local header, and in the directory behind name and data
  const size_t directory = 30U + 19U + package[18];
  Put(package, directory + 24, declared);
  const Fd file = MemoryFile(package);
  LogCapture log;
  Apk apk(file.GetFd());
  EXPECT_TRUE(apk.IsGoodZip());
  EXPECT_EQ(Lines(Info("Can't extract Android Manifest: Inconsistent information\n")), log.Take());
  ByteVector bytes;
  apk.ExtractByName("AndroidManifest.xml", bytes);
  EXPECT_EQ(0u, bytes.capacity());
}

TEST(Apk, FallsBackToTheJarSignatureOnlyWithoutASigningBlock) {
  const auto withJar = [] {
    return PackageBuilder().Entry("classes.dex", ByteVector(99)).Manifest().JarSignature();
  };
  ByteVector damaged = withJar().V2().Build();
  damaged[60] ^= 1;  // in the first entry's data
  const Fd refused = MemoryFile(damaged);
  LogCapture log;
  Apk apk(refused.GetFd(), /*ignoreHalyxFilter=*/true);
  EXPECT_FALSE(apk.IsGoodApk());
  EXPECT_EQ(ApkSignatureScheme::kV2, apk.GetApkSignatureSchemeVersion());

  // A descriptor that cannot be mapped answers like a package without a block.
  log.Take();
  ApkSignatureScheme scheme = ApkSignatureScheme::kNone;
  ByteVector key;
  EXPECT_EQ(2, Apk::VerifyApkSignature(-1, "x.apk", scheme, key));
  EXPECT_EQ(Lines(Error("Can't map file: x.apk\n")), log.Take());
  const Fd plain = MemoryFile(withJar().Build());
  EXPECT_EQ(2, Apk::VerifyApkSignature(plain.GetFd(), "x.apk", scheme, key));
  EXPECT_EQ(Lines(), log.Take());
  EXPECT_EQ(ApkSignatureScheme::kNone, scheme);
}

}  // namespace Quill
