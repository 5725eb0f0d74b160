// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <ziparchive/zip_archive.h>

#include <quillon/manifest_mf.h>

#include "simulator/simulator.h"
#include "tests/support/opened_package.h"

namespace Quill {
namespace {

const ByteVector kDex = {'d', 'e', 'x'};
const std::string kFallback = "I Fallback to APK V1 signature. APK: " + kMemoryPath + "\n";
const std::string kImpl = " verifyFileHashImpl: ";
const std::string kMismatch = "I" + kImpl + "Not verified file from manifest: ";
const std::string kBadEntry = "E" + kImpl + "Can't extract entry file in APK: classes.dex\n";

PackageBuilder Content() { return PackageBuilder().Manifest().Entry("classes.dex", kDex); }

using Edit = std::function<void(JarOptions&)>;

// Replaces text in the signature file.
Edit Sf(const std::string& what, const std::string& with) {
  const auto edit = [=](auto& text) { text.replace(text.find(what), what.size(), with); };
  return [=](JarOptions& options) { options.editSignatureFile = edit; };
}

Edit Claim(const std::string& schemes) {
  return [=](JarOptions& options) { options.apkSigned = schemes; };
}

// Changes a byte of the signature block. A negative offset counts from its end.
Edit Block(int offset) {
  const auto edit = [=](auto& block) {
    *((offset < 0 ? block.end() : block.begin()) + offset) ^= 1;
  };
  return [=](JarOptions& options) { options.editBlock = edit; };
}

Edit Key(KeyType type, const EVP_MD* signatureDigest = EVP_sha256()) {
  return [=](JarOptions& o) { o.key = &TestKey(type), o.signatureDigest = signatureDigest; };
}

Edit Certificates(const std::vector<const SigningKey*>& keys) {
  return [=](JarOptions& options) { options.certificates = keys; };
}

}  // namespace

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

TEST(SignatureFile, EachLinkIsCheckedAndNamed) {
  const KeyType kRsa = KeyType::kRsa2048, kDsa = KeyType::kDsa1024;
  const SigningKey *rsa = &TestKey(kRsa), *other = &TestKey(kRsa, 1);
  const std::string good, pkcs7 = "E PKCS7 parsing: ", bad = "E Can't validate manifest.\n";
  const std::string unverified = "E file not verified: META-INF/CERT.SF(ret=0)\n";
  const std::string unknown = "E verifyData: Unsupported digest type: SHA-512-Digest\n";
  const std::string claim = "I This APK was supposed to be signed with APK Signature Scheme v";
  const std::string unmet = ", but no such signature was found.\n";
  const struct {
    const char* rule;
    Edit edit;
    std::string log;  // after the fallback's line; empty for a good package
    bool hasKey = true;
  } kCases[] = {
      {"SHA-256", Key(kRsa), good},
      {"SHA-1", [](auto& o) { o.digestName = "SHA1", o.signatureDigest = EVP_sha1(); }, good},
      {"MD5", Key(kRsa, EVP_md5()), good},
      {"SHA-512", Key(kRsa, EVP_sha512()), "E Unknown hashing algorithm\n", false},
      {"DSA", Key(kDsa, EVP_sha1()), good},
      {"wrong DSA signature", [&](auto& o) { Key(kDsa)(o), Block(-1)(o); }, unverified},
      {"EC", Key(KeyType::kP256), "E Can't extract DSA certificate: META-INF/CERT.DSA\n", false},
      {"outer tag", Block(4), pkcs7 + "wrong header\n", false},
      {"content type", Block(14), pkcs7 + "wrong object identifier\n", false},
      {"signed data", Block(15), pkcs7 + "wrong signed-data content\n", false},
      {"issuer", Block(-297), pkcs7 + "can't find enveloped data\n", false},
      {"key algorithm", Block(-275), pkcs7 + "can't find algorithm/signature\n", false},
      {"the signer's certificate last", Certificates({other, rsa}), good},
      {"another certificate last", Certificates({rsa, other}), unverified},
      {"no digest", Sf("-Manifest", "-Nothing"), bad + bad},
      {"unknown digest", Sf("SHA-256-", "SHA-512-"), unknown + bad + bad},
      {"not Base64", Sf("Manifest: ", "Manifest: !"), bad + bad},
      {"last name", Sf("SHA-256-", "MD5-Digest-Manifest: AAAA\r\nSHA-256-"), good},
      {"first section", Sf("", "SHA-256-Digest-Manifest: AAAA\r\n\r\n"), bad + bad},
      {"no attribute", [](auto& o) { o.editSignatureFile = [](auto& text) { text = "x"; }; },
       "E Parse manifest: Error: P_KEY: unexpected end of file after key 'x'\n", false},
      {"claim in a later section", Sf("\r\n\r\n", "\r\n\r\nX-Android-APK-Signed: 2\r\n\r\n"),
       claim + "2" + unmet, false},
      {"the first claim counts", Claim(",1,,3,2"), claim + "3" + unmet, false},
      {"other claims", Claim("1, 2,4,22,3 ,"), good},
  };
  for (const auto& [rule, edit, log, hasKey] : kCases) {
    SCOPED_TRACE(rule);
    JarOptions options;
    edit(options);
    const OpenedPackage opened(Content().JarSignature(options).Build());
    EXPECT_EQ(kFallback + log, opened.log);
    EXPECT_EQ(log.empty(), opened.isGoodApk);
    EXPECT_EQ(hasKey, !opened.key.empty());
    EXPECT_EQ(1, opened.scheme);
  }
  const OpenedPackage none(PackageBuilder().Manifest().Entry("META-INF/MANIFEST.MF", {}).Build());
  EXPECT_FALSE(none.isGoodApk);
  EXPECT_EQ(kFallback, none.log);
}

// No change of one byte in the manifest or the signature file keeps the verdict, nor one in the
// signature. The rest of the block holds bytes that mean nothing here. A log line names the link.
TEST(SignatureFile, EveryChangedByteIsRefusedByTheStepThatFindsIt) {
  const std::string unverified = "\n[EI] (file not verified: META-INF/CERT.SF|";
  const std::string kRefusals[] = {
      "\n[EI] (Can't validate manifest|Can't load manifest: size=)",
      unverified + "Parse manifest: Error: P_)",
      unverified + "PKCS7 parsing:|Can't parse digest algo|Unknown hashing algorithm|can not get)"};
  std::vector<ZipFile> files = SignJar({{"classes.dex", kDex}});
  size_t meaningless = 0;
  for (size_t n = 0; n < 3; ++n) {
    for (uint8_t& byte : files[n].contents) {
      byte ^= 1;
      PackageBuilder builder = Content();
      for (const ZipFile& file : files) builder.Entry(file.name, file.contents);
      byte ^= 1;
      const OpenedPackage opened(builder.Build());
      meaningless += opened.isGoodApk;
      if (n == 2 && opened.isGoodApk) continue;
      EXPECT_FALSE(opened.isGoodApk) << files[n].name;
      EXPECT_THAT(opened.log, testing::ContainsRegex(kRefusals[n]));
    }
  }
  // The versions, the content info, issuers, serial numbers, the certificate around its key and
  // the signature algorithm's identifier.
  EXPECT_LT(meaningless, files[2].contents.size() - 256) << "key and signature at least count";
}

// A system image may have lost its signing block on purpose.
TEST(SignatureFile, AClaimOfV2CountsOnAWritableFileSystemOnly) {
  tarnsim::KernelSetup setup;
  setup.readOnly = {kMemoryPath};
  const tarnsim::Simulation simulation(setup);
  JarOptions options;
  options.apkSigned = "2";
  EXPECT_TRUE(OpenedPackage(Content().JarSignature(options).Build()).isGoodApk);
}

TEST(SignatureFile, AnEmptyRsaBlockLeavesTheDsaBlockOfTheSignatureFilesName) {
  JarOptions options;
  options.key = &TestKey(KeyType::kDsa1024);
  const std::vector<ZipFile> files = SignJar({{"classes.dex", kDex}}, options);
  PackageBuilder builder = Content().Entry("META-INF/MANIFEST.MF", files[0].contents);
  builder.Entry("META-INF/X.SF", files[1].contents).Entry("META-INF/X.DSA", files[2].contents);
  EXPECT_TRUE(OpenedPackage(builder.Entry("META-INF/X.RSA", {}).Build()).isGoodApk);
}

TEST(EntryDigests, AreCheckedForEachFormOfAnEntry) {
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
  for (const char* name : {"classes.dex", "classes2.dex", ""}) {
    EXPECT_EQ("good", logOf(v1.VerifyFileHash(name))) << name;
  }
  EXPECT_EQ("good", logOf(v1.VerifyFileHash(std::string(65536, 'n'))));
  EXPECT_EQ("good", logOf(v1.VerifyFileHash("classes.dex", same)));
  EXPECT_EQ("good", logOf(v1.VerifyFileHash("META-INF/CERT.RSA", "/nowhere")));
  EXPECT_EQ("good", logOf(v2.VerifyFileHash("classes.dex", same)));
  EXPECT_EQ("good", byEntry(v1, "classes.dex"));
  EXPECT_EQ("good", byEntry(v2, "unlisted"));
  EXPECT_EQ("E" + kImpl + "Can't find file in META-INF/MANIFEST.MF: unlisted\n",
            byEntry(v1, "unlisted"));
  EXPECT_EQ(kMismatch + "classes.dex\n", logOf(v1.VerifyFileHash("classes.dex", other)));
  EXPECT_EQ("E Can't open file: /nowhere\n" + kBadEntry,
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

TEST(EntryDigests, AChangedClassesDexRefusesTheV1Package) {
  // libziparchive does not check the CRC of stored entries in memory.
  const std::pair<size_t, std::string> kCases[] = {{30 + 11, kMismatch + "classes.dex\n"},  // bytes
                                                   {30, kBadEntry}};                        // name
  for (const auto& [offset, line] : kCases) {
    PackageBuilder builder = PackageBuilder().Entry("classes.dex", kDex).Manifest();
    ByteVector package = builder.JarSignature().Build();
    package[offset] ^= 1;
    const OpenedPackage opened(package);
    EXPECT_FALSE(opened.isGoodApk);
    EXPECT_EQ(kFallback + line + "E Integrity not confirmed: classes.dex\n", opened.log);
  }
}

}  // namespace Quill
