#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "apk/apk.h"
#include "simulator/simulator.h"
#include "tests/support/log_capture.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"

namespace Quill {
namespace {

const ByteVector kDex = {'d', 'e', 'x'};

std::vector<LogLine> Fallback(std::vector<LogLine> lines = {}) {
  lines.insert(lines.begin(),
               Info("Fallback to APK V1 signature. APK: /memfd:quillon-test (deleted)\n"));
  return lines;
}

PackageBuilder JarSigned(const JarOptions& options) {
  return PackageBuilder().Manifest().Entry("classes.dex", kDex).JarSignature(options);
}

void ReplaceIn(std::string& text, const std::string& what, const std::string& with) {
  text.replace(text.find(what), what.size(), with);
}

}  // namespace

TEST(SignatureFile, EachLinkIsCheckedAndNamed) {
  const SigningKey* rsa = &TestKey(KeyType::kRsa2048);
  const SigningKey* otherRsa = &TestKey(KeyType::kRsa2048, 1);
  const SigningKey* dsa = &TestKey(KeyType::kDsa1024);
  const SigningKey* ec = &TestKey(KeyType::kP256);

  struct Case {
    const char* rule;
    std::function<void(JarOptions&)> bend;
    std::vector<LogLine> log;  // behind the line of the fallback
    bool hasKey = false;
  };
  const std::vector<LogLine> badManifest =
      Lines(Error("Can't validate manifest.\n"), Error("Can't validate manifest.\n"));
  const std::vector<Case> kCases = {
      {"RSA, SHA-256", [](auto&) {}, {}, true},
      {"RSA, SHA-1",
       [](auto& o) { o.digestName = "SHA1", o.signatureDigest = EVP_sha1(); },
       {},
       true},
      {"RSA, MD5", [](auto& o) { o.signatureDigest = EVP_md5(); }, {}, true},
      {"DSA, SHA-1", [=](auto& o) { o.key = dsa, o.signatureDigest = EVP_sha1(); }, {}, true},
      {"DSA, SHA-256", [=](auto& o) { o.key = dsa; }, {}, true},
      {"the last certificate counts",
       [=](auto& o) {
         o.certificates = {otherRsa, rsa};
       },
       {},
       true},
      {"SHA-512", [](auto& o) { o.signatureDigest = EVP_sha512(); },
       Lines(Error("Unknown hashing algorithm\n"))},
      {"EC block", [=](auto& o) { o.key = ec; },
       Lines(Error("Can't extract DSA certificate: META-INF/CERT.DSA\n"))},
      {"signed attributes",
       [](auto& o) {
         o.signedAttributes = {0xa0, 0};
       },
       Lines(Error("PKCS7 parsing: can't find algorithm/signature\n"))},
      {"certificate of another key",
       [=](auto& o) {
         o.certificates = {rsa, otherRsa};
       },
       Lines(Error("file not verified: META-INF/CERT.SF(ret=0)\n")), true},
      {"no file digest",
       [](auto& o) {
         o.editSignatureFile = [](std::string& text) { ReplaceIn(text, "-Manifest", "-Nothing"); };
       },
       badManifest, true},
      {"unknown file digest",
       [](auto& o) {
         o.editSignatureFile = [](std::string& text) { ReplaceIn(text, "SHA-256-", "SHA-512-"); };
       },
       Lines(Error("verifyData: Unsupported digest type: SHA-512-Digest\n"), badManifest[0],
             badManifest[1]),
       true},
      {"an undecodable file digest",
       [](auto& o) {
         o.editSignatureFile = [](std::string& text) {
           ReplaceIn(text, "Manifest: ", "Manifest: !");
         };
       },
       badManifest, true},
      {"of several file digests the last name counts",
       [](auto& o) {
         o.editSignatureFile = [](std::string& text) {
           ReplaceIn(text, "SHA-256-Digest", "MD5-Digest-Manifest: AAAA\r\nSHA-256-Digest");
         };
       },
       {},
       true},
      {"the first section with one counts",
       [](auto& o) {
         o.editSignatureFile = [](std::string& text) {
           text = "SHA-256-Digest-Manifest: AAAA\r\n\r\n" + text;
         };
       },
       badManifest, true},
      {"a signature file that does not parse",
       [](auto& o) { o.editSignatureFile = [](std::string& text) { text = "x"; }; },
       Lines(Error("Parse manifest: Error: P_KEY: unexpected end of file after key 'x'\n"))},
      {"stripped of v2", [](auto& o) { o.apkSigned = "2"; },
       Lines(Info("This APK was supposed to be signed with APK Signature Scheme v2, but no such "
                  "signature was found.\n"))},
      {"stripped of v3", [](auto& o) { o.apkSigned = "1,3,2"; },
       Lines(Info("This APK was supposed to be signed with APK Signature Scheme v3, but no such "
                  "signature was found.\n"))},
      {"claims in an entry's section count",
       [](auto& o) {
         o.editSignatureFile = [](std::string& text) {
           text += "Name: a\r\nX-Android-APK-Signed: 2\r\n\r\n";
         };
       },
       Lines(Info("This APK was supposed to be signed with APK Signature Scheme v2, but no such "
                  "signature was found.\n"))},
      {"other claims do not", [](auto& o) { o.apkSigned = "1, 2,4"; }, {}, true},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.rule);
    JarOptions options;
    c.bend(options);
    const Fd file = MemoryFile(JarSigned(options).Build());
    LogCapture log;
    Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
    EXPECT_EQ(Fallback(c.log), log.Take());
    EXPECT_EQ(c.log.empty(), apk.IsGoodApk());
    EXPECT_EQ(Lines(), log.Take());
    EXPECT_EQ(c.hasKey, !apk.GetManufacturerKey().empty());
    EXPECT_EQ(ApkSignatureScheme::kJar, apk.GetApkSignatureSchemeVersion());
  }
}

// The outer elements one after the other: each tag changed is refused by the step that wants it.
TEST(SignatureFile, NamesTheElementOfTheBlockThatIsMissing) {
  struct Case {
    const char* element;
    std::function<void(ByteVector&)> edit;
    LogLine line;
  };
  const auto at = [](size_t offset) {
    return [offset](ByteVector& block) { block.at(offset) ^= 0x01; };
  };
  const Case kCases[] = {
      {"nothing at all", [](ByteVector& block) { block = {0}; },
       Error("PKCS7 parsing: wrong header\n")},
      {"ContentInfo", at(0), Error("PKCS7 parsing: wrong header\n")},
      {"a shorter block", [](ByteVector& block) { block.pop_back(); },
       Error("PKCS7 parsing: wrong header\n")},
      {"contentType", at(4), Error("PKCS7 parsing: wrong header\n")},
      {"the identifier", at(14), Error("PKCS7 parsing: wrong object identifier\n")},
      {"[0]", at(15), Error("PKCS7 parsing: wrong signed-data content\n")},
      {"SignedData", at(19), Error("PKCS7 parsing: wrong signed-data content\n")},
      {"version", at(23), Error("PKCS7 parsing: wrong signed-data content\n")},
      {"digestAlgorithms", at(26), Error("PKCS7 parsing: wrong signed-data content\n")},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.element);
    JarOptions options;
    options.editBlock = c.edit;
    const Fd file = MemoryFile(JarSigned(options).Build());
    LogCapture log;
    Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
    EXPECT_EQ(Fallback(Lines(c.line)), log.Take());
    EXPECT_FALSE(apk.IsGoodApk());
  }
}

// No change of one byte in the manifest or the signature file keeps the verdict, nor one in the
// signature; the rest of the block holds bytes that bear no meaning here. The last line names the
// link.
TEST(SignatureFile, EveryChangedByteIsRefusedByTheStepThatFindsIt) {
  const std::set<std::string> lastLines[] = {
      {"Can't validate manifest.\n", "Can't load manifest: size="},
      {"file not verified: META-INF/CERT.SF(ret=0)\n", "Parse manifest: Error: P_COLON",
       "Parse manifest: Error: P_KEY"},
      {"file not verified: META-INF/CERT.SF(ret=0)\n",
       "PKCS7 parsing:", "Can't parse digest algo\n", "Unknown hashing algorithm\n", "can not get",
       "Error parsing DSA signature\n"}};
  const auto isNamed = [](const std::set<std::string>& lines, const std::string& line) {
    return std::any_of(lines.begin(), lines.end(), [&line](const std::string& start) {
      return line.compare(0, start.size(), start) == 0;
    });
  };
  for (const KeyType type : {KeyType::kRsa2048, KeyType::kDsa1024}) {
    JarOptions options;
    options.key = &TestKey(type);
    const std::vector<ZipFile> files = SignJar({{"classes.dex", kDex}}, options);
    LogCapture log;
    size_t meaningless = 0;
    for (size_t n = 0; n < files.size(); ++n) {
      for (size_t i = 0; i < files[n].contents.size(); ++i) {
        SCOPED_TRACE(files[n].name + " byte " + std::to_string(i));
        PackageBuilder builder = PackageBuilder().Manifest().Entry("classes.dex", kDex);
        for (size_t k = 0; k < files.size(); ++k) {
          ByteVector contents = files[k].contents;
          if (k == n) contents[i] ^= 0x01;
          builder.Entry(files[k].name, contents);
        }
        const Fd file = MemoryFile(builder.Build());
        Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
        const std::vector<LogLine> lines = log.Take();
        if (apk.IsGoodApk()) {
          EXPECT_EQ(2u, n);
          ++meaningless;
          continue;
        }
        EXPECT_TRUE(isNamed(lastLines[n], lines.back().text)) << lines.back().text;
      }
    }
    // The versions, the content info, issuers, serial numbers, the certificate around its key and
    // the signature algorithm's identifier.
    EXPECT_LT(meaningless, files[2].contents.size() - 256) << "key and signature at least count";
    EXPECT_GT(meaningless, 0u);
  }
}

TEST(SignatureFile, SamplesVerify) {
  for (const char* name : {"v1.apk", "v1-dsa.apk"}) {
    LogCapture log;
    Apk apk((std::string(QUILLON_SAMPLES_DIR "/") + name).c_str());
    EXPECT_TRUE(apk.IsGoodApk()) << name;
    EXPECT_EQ(ApkSignatureScheme::kJar, apk.GetApkSignatureSchemeVersion());
  }
}

// A system image may have lost its signing block on purpose.
TEST(SignatureFile, AClaimOfV2CountsOnAWritableFileSystemOnly) {
  JarOptions options;
  options.apkSigned = "2";
  const TempFolder folder;
  const std::string path = folder.Write("base.apk", JarSigned(options).Build());
  tarnsim::KernelSetup setup;
  setup.readOnly = {folder.Path()};
  const tarnsim::Simulation simulation(setup);
  LogCapture log;
  const auto file = OpenFileRO(path);
  Apk apk(file->GetFd(), /*ignoreHalyxFilter=*/true);
  EXPECT_TRUE(apk.IsGoodApk());
}

TEST(SignatureFile, OfSeveralOnlyOneIsLookedAt) {
  JarOptions options;
  options.signer = "OTHER";
  LogCapture log;
  const Fd file = MemoryFile(JarSigned(options).Build());
  Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
  EXPECT_TRUE(apk.IsGoodApk());

  const Fd none = MemoryFile(PackageBuilder().Manifest().Entry("META-INF/MANIFEST.MF", {}).Build());
  log.Take();
  Apk unsignedApk(none.GetFd(), /*ignoreHalyxFilter=*/true);
  EXPECT_FALSE(unsignedApk.IsGoodApk());
  EXPECT_EQ(Fallback(), log.Take());
}

}  // namespace Quill
