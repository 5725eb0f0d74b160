// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <ziparchive/zip_archive.h>

#include <quillon/manifest_mf.h>

#include "simulator/simulator.h"
#include "tests/support/opened_package.h"

namespace Quill {
namespace {

using Sections = std::vector<ManifestMf::Section>;

const ByteVector kDex = {'d', 'e', 'x'};

PackageBuilder Content() { return PackageBuilder().Manifest().Entry("classes.dex", kDex); }

const std::string kFallback = "I Fallback to APK V1 signature. APK: " + kMemoryPath + "\n";

// An edit of the signature file.
void Replace(JarOptions& options, const std::string& what, const std::string& with) {
  options.editSignatureFile = [=](std::string& text) {
    text.replace(text.find(what), what.size(), with);
  };
}

std::string Stripped(const std::string& scheme) {
  return "I This APK was supposed to be signed with APK Signature Scheme v" + scheme +
         ", but no such signature was found.\n";
}

std::string Mismatch(const std::string& name) {
  return "I verifyFileHashImpl: Not verified file from manifest: " + name + "\n";
}
std::string Unlisted(const std::string& name) {
  return "E verifyFileHashImpl: Can't find file in META-INF/MANIFEST.MF: " + name + "\n";
}
const std::string kUnextractable =
    "E verifyFileHashImpl: Can't extract entry file in APK: classes.dex\n";

// The entry of a name, by the name or by its ZipEntry, or else as the file at that path.
const std::string kByName = "name", kByEntry = "entry";

bool Verify(Apk& apk, const std::string& name, const std::string& path) {
  ZipEntry entry{};
  if (path == kByName) return apk.VerifyFileHash(name);
  if (path != kByEntry) return apk.VerifyFileHash(name, path);
  return apk.FindEntry(name, &entry) == 0 && apk.VerifyFileHash(name, &entry);
}

}  // namespace

TEST(ManifestMf, ReadsSections) {
  const std::pair<std::string, Sections> kCases[] = {
      {"A: 1\r\n\r\n", {{{"A", "1"}}}},
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
      {"A:\nBC: 2\n\n", {{{"C", "2"}}}},                     // a colon and LF eat a character
      {"A:\r\nBC: 2\r\n\r\n", {{{"BC", "2"}}}},
      {"A:\r\n 1\r\n\r\n", {{{"A", "1"}}}},
      {"A: \n\n", {{}}},
      {std::string("A: 1\0B: 2\n\n", 11), {{{"A", "1"}, {"B", "2"}}}},
  };
  LogCapture log;
  for (const auto& [text, sections] : kCases) {
    ManifestMf manifest;
    EXPECT_TRUE(manifest.load(text));
    EXPECT_EQ(sections, manifest.getSections()) << text;
  }
  EXPECT_EQ("", log.Take());
}

TEST(ManifestMf, RefusesBadSyntaxAndKeepsWhatCameBefore) {
  const std::pair<std::string, std::string> kCases[] = {
      {"B:\xe9\n\n", "P_COLON: unexpected 0xe9 after colon: \xe9\n"},
      {std::string("B\0C: 2\n\n", 8), "P_KEY: unexpected end of file after key 'B'\n"},
      // What stands behind a colon at the very end is the end itself; the message then stops there.
      {"A:", "P_COLON: unexpected 0x00 after colon: ~\n"},
  };
  for (const auto& [text, message] : kCases) {
    LogCapture log;
    ManifestMf manifest;
    EXPECT_FALSE(manifest.load("A: 1\n\n" + text) || static_cast<bool>(manifest));
    EXPECT_EQ(Sections({{{"A", "1"}}}), manifest.getSections());
    EXPECT_EQ("E Parse manifest: Error: " + message, log.Take());
  }
}

TEST(SignatureFile, EachLinkIsCheckedAndNamed) {
  const SigningKey* rsa = &TestKey(KeyType::kRsa2048);
  const SigningKey* otherRsa = &TestKey(KeyType::kRsa2048, 1);
  const std::string verified;
  const std::string bad = "E Can't validate manifest.\n";
  const std::string sha512 = "E verifyData: Unsupported digest type: SHA-512-Digest\n";
  const struct {
    const char* rule;
    std::function<void(JarOptions&)> bend;
    std::string log;  // behind the line of the fallback
    bool hasKey = true;
  } kCases[] = {
      {"SHA-256", [](auto&) {}, verified},
      {"SHA-1", [](auto& o) { o.digestName = "SHA1", o.signatureDigest = EVP_sha1(); }, verified},
      {"MD5", [](auto& o) { o.signatureDigest = EVP_md5(); }, verified},
      {"DSA", [](auto& o) { o.key = &TestKey(KeyType::kDsa1024), o.signatureDigest = EVP_sha1(); },
       verified},
      {"SHA-512", [](auto& o) { o.signatureDigest = EVP_sha512(); },
       "E Unknown hashing algorithm\n", false},
      {"EC block", [](auto& o) { o.key = &TestKey(KeyType::kP256); },
       "E Can't extract DSA certificate: META-INF/CERT.DSA\n", false},
      {"signed attributes", [](auto& o) { o.signedAttributes = Wire().U16(0xa0); },
       "E PKCS7 parsing: can't find algorithm/signature\n", false},
      {"the signer's certificate last",
       [=](auto& o) { o.certificates.insert(o.certificates.begin(), otherRsa); }, verified},
      {"another certificate last", [=](auto& o) { o.certificates.push_back(otherRsa); },
       "E file not verified: META-INF/CERT.SF(ret=0)\n"},
      {"no digest", [](auto& o) { Replace(o, "-Manifest", "-Nothing"); }, bad + bad},
      {"unknown digest", [](auto& o) { Replace(o, "SHA-256-", "SHA-512-"); }, sha512 + bad + bad},
      {"not Base64", [](auto& o) { Replace(o, "Manifest: ", "Manifest: !"); }, bad + bad},
      {"of several digests the last name counts",
       [](auto& o) { Replace(o, "SHA-256-", "MD5-Digest-Manifest: AAAA\r\nSHA-256-"); }, verified},
      {"the first section with one counts",
       [](auto& o) { Replace(o, "", "SHA-256-Digest-Manifest: AAAA\r\n\r\n"); }, bad + bad},
      {"no attribute", [](auto& o) { o.editSignatureFile = [](auto& text) { text = "x"; }; },
       "E Parse manifest: Error: P_KEY: unexpected end of file after key 'x'\n", false},
      {"stripped of v2", [](auto& o) { o.apkSigned = "2"; }, Stripped("2"), false},
      {"stripped of v3", [](auto& o) { o.apkSigned = "1,3,2"; }, Stripped("3"), false},
      {"claims in an entry's section",
       [](auto& o) { Replace(o, "\r\n\r\n", "\r\n\r\nX-Android-APK-Signed: 2\r\n\r\n"); },
       Stripped("2"), false},
      {"the first claim counts", [](auto& o) { o.apkSigned = ",1,,3,2"; }, Stripped("3"), false},
      {"other claims", [](auto& o) { o.apkSigned = "1, 2,4,22,3 ,"; }, verified},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.rule);
    JarOptions options;
    options.certificates = {rsa};
    c.bend(options);
    if (options.key != rsa) options.certificates = {options.key};
    const OpenedPackage opened(Content().JarSignature(options).Build());
    EXPECT_EQ(kFallback + c.log, opened.log);
    EXPECT_EQ(c.log.empty(), opened.isGoodApk);
    EXPECT_EQ(c.hasKey, !opened.key.empty());
    EXPECT_EQ(1, opened.scheme);
  }
}

// The tag of an outer element, changed, is refused by the step that wants it.
TEST(SignatureFile, NamesTheElementOfTheBlockThatIsMissing) {
  const std::pair<size_t, std::string> kCases[] = {{4, "wrong header"},
                                                   {14, "wrong object identifier"},
                                                   {15, "wrong signed-data content"},
                                                   {26, "wrong signed-data content"}};
  for (const auto& [offset, text] : kCases) {
    JarOptions options;
    options.editBlock = [at = offset](ByteVector& block) { block.at(at) ^= 0x01; };
    EXPECT_EQ(kFallback + "E PKCS7 parsing: " + text + "\n",
              OpenedPackage(Content().JarSignature(options).Build()).log);
  }
}

// No change of one byte in the manifest or the signature file keeps the verdict, nor one in the
// signature; the rest of the block holds bytes that bear no meaning here. A line names the link.
TEST(SignatureFile, EveryChangedByteIsRefusedByTheStepThatFindsIt) {
  const std::string unverified = "\n[EI] (file not verified: META-INF/CERT.SF|";
  const std::string kRefusals[] = {
      "\n[EI] (Can't validate manifest|Can't load manifest: size=)",
      unverified + "Parse manifest: Error: P_)",
      unverified + "PKCS7 parsing:|Can't parse digest algo|Unknown hashing algorithm|can not get|" +
          "Error parsing DSA signature)"};
  for (const KeyType type : {KeyType::kRsa2048, KeyType::kDsa1024}) {
    JarOptions options;
    options.key = &TestKey(type);
    std::vector<ZipFile> files = SignJar({{"classes.dex", kDex}}, options);
    size_t meaningless = 0;
    for (size_t n = 0; n < files.size(); ++n) {
      for (uint8_t& byte : files[n].contents) {
        byte ^= 0x01;
        PackageBuilder builder = Content();
        for (const ZipFile& file : files) builder.Entry(file.name, file.contents);
        byte ^= 0x01;
        const OpenedPackage opened(builder.Build());
        if (n == 2 && opened.isGoodApk) {
          ++meaningless;
          continue;
        }
        EXPECT_FALSE(opened.isGoodApk) << files[n].name;
        EXPECT_THAT(opened.log, testing::ContainsRegex(kRefusals[n]));
      }
    }
    // The versions, the content info, issuers, serial numbers, the certificate around its key and
    // the signature algorithm's identifier.
    EXPECT_LT(meaningless, files[2].contents.size() - 256) << "key and signature at least count";
    EXPECT_GT(meaningless, 0u);
  }
}

// A system image may have lost its signing block on purpose.
TEST(SignatureFile, AClaimOfV2CountsOnAWritableFileSystemOnly) {
  JarOptions options;
  options.apkSigned = "2";
  tarnsim::KernelSetup setup;
  setup.readOnly = {kMemoryPath};
  const tarnsim::Simulation simulation(setup);
  EXPECT_TRUE(OpenedPackage(Content().JarSignature(options).Build()).isGoodApk);
}

TEST(SignatureFile, OfSeveralOnlyOneIsLookedAt) {
  JarOptions options;
  options.signer = "OTHER";
  EXPECT_TRUE(OpenedPackage(Content().JarSignature(options).Build()).isGoodApk);
  const OpenedPackage none(PackageBuilder().Manifest().Entry("META-INF/MANIFEST.MF", {}).Build());
  EXPECT_FALSE(none.isGoodApk);
  EXPECT_EQ(kFallback, none.log);
}

TEST(EntryDigests, ThreeFormsOnBothRoads) {
  const TempFolder folder;
  const std::string same = folder.Write("same", kDex),
                    other = folder.Write("other", {'d', 'e', 'y'});
  JarOptions options;
  options.editManifest = [](std::string& text) {
    text += "Name: sha512\r\nSHA-512-Digest: AAAA\r\n\r\n";
    text += "Name: several\r\nSHA-256-Digest: nQ+/k0n2RvFDUHLysCEghHUu9GAb1rAS+75htsXgOTA=\r\n";
    text += "SHA1-Digest: AAAA\r\n\r\n";
  };
  const auto package = [](PackageBuilder builder) {
    for (const char* name : {"sha512", "several", "unlisted"}) builder.Entry(name, kDex);
    return MemoryFile(builder.Build());
  };
  const auto content = [] {
    return PackageBuilder().Manifest().Entry("classes.dex", kDex, Compression::kDeflated);
  };
  const Fd v1File = package(content().JarSignature(options));
  // Its own manifest counts where it lists an entry; the skipped names are for v1 alone.
  const ByteVector listing = Wire().Text("A: 1\n\nName: META-INF/CERT.SF\nSHA1-Digest: AAAA\n\n");
  const Fd v2File = package(
      content().Entry("META-INF/CERT.SF", kDex).Entry("META-INF/MANIFEST.MF", listing).V2());
  LogCapture log;
  Apk v1(v1File.GetFd(), /*ignoreHalyxFilter=*/true);
  Apk v2(v2File.GetFd(), /*ignoreHalyxFilter=*/true);
  ASSERT_TRUE(v1.IsGoodApk() && v2.IsGoodApk());
  log.Take();

  const struct {
    Apk& apk;
    std::string name, path;
    std::string log;  // none: good
  } kCases[] = {
      {v1, "classes.dex", kByName, {}},
      {v1, "classes.dex", kByEntry, {}},
      {v1, "classes.dex", same, {}},
      {v1, "classes.dex", other, Mismatch("classes.dex")},
      {v1, "classes.dex", "/nowhere", "E Can't open file: /nowhere\n" + kUnextractable},
      {v1, "classes2.dex", kByName, {}},
      {v1, "", kByName, {}},
      {v1, std::string(65536, 'n'), kByName, {}},
      {v1, "unlisted", kByEntry, Unlisted("unlisted")},
      {v1, "META-INF/CERT.RSA", "/nowhere", {}},
      {v1, "sha512", kByName,
       "E verifyData: Unsupported digest type: SHA-512-Digest\n" + Mismatch("sha512")},
      {v1, "several", kByName, Mismatch("several")},
      {v2, "unlisted", kByEntry, {}},
      {v2, "META-INF/CERT.SF", kByName, Mismatch("META-INF/CERT.SF")},
      {v2, "classes.dex", same, {}},
      {v2, "classes.dex", other,
       "I verifyFileHashImpl: Not verified file in case empty manifest: classes.dex\n"},
      {v2, "classes2.dex", same,
       "E verifyFileHashImpl: Can't extract base file in APK: classes2.dex\n"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(&c - kCases);
    EXPECT_EQ(c.log.empty(), Verify(c.apk, c.name, c.path));
    EXPECT_EQ(c.log, log.Take());
  }
}

TEST(EntryDigests, SkipsExactlySevenNames) {
  const std::pair<const char*, bool> kNames[] = {
      {"CERT.RSA", true},    {"ANDROIDD.RSA", true}, {"SECUREST.RSA", true}, {"CERT.SF", true},
      {"ANDROIDD.SF", true}, {"SECUREST.SF", true},  {"MANIFEST.MF", true},  {"cert.sf", false},
      {"CERT.DSA", false},   {"OTHER.SF", false}};
  LogCapture log;
  for (const auto& [name, isSkipped] : kNames) {
    EXPECT_EQ(isSkipped, Apk(-1).CanSkipValidation(std::string("META-INF/") + name)) << name;
  }
}

TEST(EntryDigests, AChangedClassesDexRefusesTheV1PackageForGood) {
  // libziparchive does not check the CRC of stored entries in memory.
  const std::pair<size_t, std::string> kCases[] = {{30 + 11, Mismatch("classes.dex")},  // its bytes
                                                   {30, kUnextractable}};  // the name before them
  for (const auto& [offset, line] : kCases) {
    ByteVector package =
        PackageBuilder().Entry("classes.dex", kDex).Manifest().JarSignature().Build();
    package[offset] ^= 1;
    const Fd file = MemoryFile(package);
    LogCapture log;
    Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
    log.Take();
    EXPECT_FALSE(apk.IsGoodApk());
    EXPECT_EQ(line + "E Integrity not confirmed: classes.dex\n", log.Take());
    EXPECT_FALSE(apk.IsGoodApk());
    EXPECT_EQ("", log.Take()) << "no second check";
  }
}

}  // namespace Quill
