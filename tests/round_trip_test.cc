#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ziparchive/zip_archive.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "tests/support/opened_package.h"
#include "tests/support/package_builder.h"

namespace Quill {
namespace {

// A signer's key, and the algorithm that apksigner takes for it in v2 and v3.
struct Key {
  std::string name;  // of its files
  std::string kind;  // for OpenSSL
  std::string algorithmId;

  bool IsEc() const { return name[0] == 'P'; }
  std::string Options() const { return " --key " + name + ".pk8 --cert " + name + ".crt"; }
};

std::string Dsa(const std::string& bits, const std::string& orderBits) {
  return "genpkey -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:" + bits +
         " -pkeyopt dsa_paramgen_q_bits:" + orderBits + " | openssl gendsa /dev/stdin";
}

const std::vector<Key> kKeys = {
    {"RSA1024", "genrsa 1024", "0x103"},
    {"RSA2048", "genrsa 2048", "0x103"},
    {"RSA3072", "genrsa 3072", "0x103"},
    {"RSA4096", "genrsa 4096", "0x104"},
    {"P256", "ecparam -genkey -noout -name prime256v1", "0x201"},
    {"P384", "ecparam -genkey -noout -name secp384r1", "0x202"},
    {"P521", "ecparam -genkey -noout -name secp521r1", "0x202"},
    {"DSA1024", Dsa("1024", "160"), "0x301"},
    {"DSA2048", Dsa("2048", "256"), "0x301"},
    {"DSA3072", Dsa("3072", "256"), "0x301"},
};

// The options save half of the time that Java takes to start.
const std::string kApksigner = "apksigner -JXX:TieredStopAtLevel=1 -JXX:+UseSerialGC ";
const std::string kForSdk28 = " --min-sdk-version 28";
const std::string kPath = "/memfd:quillon-test (deleted)\n";

// A package with one bit changed in a region, and the line that it is refused with.
struct Change {
  std::string region;
  ByteVector package;
  LogLine refusal;
};

ByteVector WithChangedBit(ByteVector bytes, size_t offset) {
  bytes.at(offset) ^= 1;
  return bytes;
}

// Where `part` starts the last time.
size_t FindLast(const ByteVector& bytes, const ByteVector& part) {
  const auto found = std::find_end(bytes.begin(), bytes.end(), part.begin(), part.end());
  return static_cast<size_t>(found - bytes.begin());
}

// An archive of the package's entries, with one bit changed in that of the name.
ByteVector WithChangedEntry(const ByteVector& package, const std::string& name) {
  const LogCapture ignored;
  const Fd file = MemoryFile(package);
  Apk apk(file.GetFd());
  PackageBuilder changed;
  void* cookie = nullptr;
  EXPECT_EQ(0, apk.StartIteration(&cookie, "", ""));
  ZipEntry entry;
  ByteVector contents;
  bool isThere = false;
  for (std::string read; apk.Next(cookie, &entry, read) == 0; isThere |= read == name) {
    EXPECT_EQ(0, apk.Extract(&entry, contents));
    changed.Entry(read, read == name ? WithChangedBit(contents, contents.size() - 5) : contents);
  }
  apk.EndIteration(cookie);
  EXPECT_TRUE(isThere) << name;
  return changed.Build();
}

class RoundTrip : public testing::Test {
 protected:
  // Runs a line of the shell in the test's folder.
  void Run(const std::string& line) {
    const std::string script =
        "cd " + folder_.Path() + " && { " + line + "; } >out 2>&1 || { cat out; false; }";
    if (std::system(script.c_str()) != 0) throw std::runtime_error(line);
  }

  ByteVector File(const std::string& name) { return ReadFile(folder_.Path() + "/" + name); }

  void MakeKey(const Key& key) {
    Run("name=" + key.name + "; openssl " + key.kind + R"( >key &&
        openssl pkcs8 -topk8 -nocrypt -in key -outform DER -out $name.pk8 &&
        openssl req -new -x509 -key key -subj /CN=$name -outform DER -out $name.crt &&
        openssl pkey -in key -pubout -outform DER -out $name.public &&
        openssl pkey -in key -noout -text_pub |
          sed -n '/^\(Modulus\|pub\):/,/^[^ ]/s/^  *//p' | tr -d ':\n' >$name.hex)");
  }

  // The digits of the number or point that OpenSSL shows, without the former's sign and the first
  // two bytes of the latter.
  std::string ManufacturerKey(const Key& key) {
    const ByteVector digits = File(key.name + ".hex");
    const std::string hex(digits.begin(), digits.end());
    return hex.substr(key.IsEc() ? 4 : hex.substr(0, 2) == "00" ? 2 : 0);
  }

  // Signs a sample by the schemes, which are digits.
  ByteVector Sign(const std::string& schemes, const std::vector<Key>& signers,
                  const std::string& options) {
    std::string line = kApksigner + "sign --in sample.apk --out signed.apk" +
                       " --v4-signing-enabled false" + options;
    for (const std::string scheme : {"1", "2", "3"}) {
      const bool isEnabled = schemes.find(scheme) != std::string::npos;
      line += " --v" + scheme + "-signing-enabled " + (isEnabled ? "true" : "false");
    }
    for (size_t i = 0; i < signers.size(); ++i) {
      line += (i == 0 ? "" : " --next-signer") + signers[i].Options();
    }
    Run(line);
    return File("signed.apk");
  }

  void ExpectGoodButFor(const std::vector<Change>& changes, const OpenedPackage& good, int scheme,
                        const Key& identity, const std::vector<LogLine>& lines) {
    EXPECT_TRUE(good.isGoodApk);
    EXPECT_EQ(scheme, good.scheme);
    EXPECT_EQ(ManufacturerKey(identity), Hex(good.key));
    EXPECT_EQ(lines, good.lines);
    for (const Change& change : changes) {
      const OpenedPackage changed(change.package);
      EXPECT_FALSE(changed.isGoodApk) << change.region;
      EXPECT_THAT(changed.lines, testing::Contains(change.refusal)) << change.region;
    }
  }

  void ExpectV1(const Key& signer, const std::string& options = kForSdk28) {
    SCOPED_TRACE("v1 by " + signer.name + options);
    const ByteVector package = Sign("1", {signer}, options);
    const OpenedPackage good(package);
    const LogLine fallback = Info("Fallback to APK V1 signature. APK: " + kPath);
    const std::string stem = "META-INF/" + signer.name;
    if (signer.IsEc()) {  // the signature block's name ends in EC, which is not looked for
      EXPECT_FALSE(good.isGoodApk);
      EXPECT_EQ(Lines(fallback, Error("Can't extract DSA certificate: " + stem + ".DSA\n")),
                good.lines);
      return;
    }
    const LogLine notVerified = Error("file not verified: " + stem + ".SF(ret=0)\n");
    std::vector<Change> changes = {
        {"META-INF/MANIFEST.MF", {}, Error("Can't validate manifest.\n")},
        {stem + ".SF", {}, notVerified},
        {stem + "." + signer.name.substr(0, 3), {}, notVerified},
        {"classes.dex", {}, Error("Integrity not confirmed: classes.dex\n")},
    };
    for (Change& change : changes) change.package = WithChangedEntry(package, change.region);
    ExpectGoodButFor(changes, good, 1, signer, {fallback});
    // Of the entries classes.dex alone is checked, and nothing of the archive's structure.
    EXPECT_EQ(good, OpenedPackage(WithChangedEntry(package, "lib/arm64-v8a/libsample.so")));
  }

  // `schemes` end in 2 or 3, by which the package then verifies; for 3 the last signer counts.
  void ExpectBlock(const std::string& schemes, std::vector<Key> signers, const Key& identity,
                   const std::string& options = kForSdk28) {
    SCOPED_TRACE("v" + schemes + " by " + signers.back().name + options);
    const ByteVector package = Sign(schemes, signers, options);
    if (schemes.back() == '3') signers = {signers.back()};
    const size_t record = package.size() - 22;
    uint32_t directory;
    std::memcpy(&directory, &package.at(record + 16), sizeof directory);

    std::vector<LogLine> lines = {
        Info("Use APK V" + schemes.substr(schemes.size() - 1) + " signature. APK: " + kPath)};
    const LogLine otherDigest = Error("Can't verify digests of APK");
    const LogLine otherSignature = Error("Can't verify signature");
    std::vector<Change> changes = {
        {"first ZIP entry", WithChangedBit(package, 10), otherDigest},
        {"central directory", WithChangedBit(package, directory + 12), otherDigest},
        {"end record", WithChangedBit(package, record + 4), otherDigest},
        {"magic of the signing block", WithChangedBit(package, directory - 1),
         schemes[0] == '1'
             ? Info("This APK was supposed to be signed with APK Signature Scheme v2, "
                    "but no such signature was found.\n")
             : Error("Can't extract manifest: Entry not found\n")},
    };
    for (const Key& signer : signers) {
      lines.push_back(Info("Found the best signature algorithm ID: " + signer.algorithmId));
      const ByteVector publicKey = File(signer.name + ".public");
      const size_t certificate = FindLast(package, File(signer.name + ".crt"));
      const size_t key = FindLast(package, publicKey);
      changes.push_back(
          {"signed data", WithChangedBit(package, certificate + 100), otherSignature});
      changes.push_back({"signature", WithChangedBit(package, key - 5), otherSignature});
      changes.push_back(
          {"public key", WithChangedBit(package, key + publicKey.size() - 10),
           signer.IsEc() ? Error("Can't initialize verifier object") : otherSignature});
    }
    ExpectGoodButFor(changes, OpenedPackage(package), schemes.back() - '0', identity, lines);
  }

  TempFolder folder_;
};

}  // namespace

// Not tried, because apksigner refuses to sign so: v1 for SDK levels before 18 by EC keys ("ECDSA
// signatures only supported for minSdkVersion 18 and higher"), before 21 by DSA keys that take a
// digest longer than SHA-1 ("The security strength of SHA-1 digest algorithm is not sufficient for
// this key size").
TEST_F(RoundTrip, WhatApksignerSignsVerifiesAndIsRefusedWithAChangedBit) {
  if (std::system("{ openssl version && apksigner --version; } >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "needs openssl, apksigner and the Java that it runs on";
  }
  folder_.Write("sample.apk", ReadFile(QUILLON_SAMPLES_DIR "/v2.apk"));
  for (const Key& key : kKeys) MakeKey(key);
  for (const Key& key : kKeys) {
    ExpectV1(key);
    for (const char* schemes : {"2", "3", "12", "123"}) ExpectBlock(schemes, {key}, key);
  }
  ExpectV1(kKeys[1], " --min-sdk-version 17");  // SHA-1
  ExpectV1(kKeys[7], " --min-sdk-version 17");
  ExpectBlock("2", {kKeys[4], kKeys[1]}, kKeys[4]);
  ExpectBlock("2", kKeys, kKeys[0]);

  // A lineage that grows, with a signer of each kind; the oldest key is the identity.
  std::string from;
  for (size_t i = 1; i < kKeys.size(); ++i) {
    const std::string lineage = "lineage" + std::to_string(i);
    Run(kApksigner + "rotate" + from + " --out " + lineage + " --old-signer" +
        kKeys[i - 1].Options() + " --new-signer" + kKeys[i].Options());
    ExpectBlock("3", {kKeys[i]}, kKeys[0], kForSdk28 + " --lineage " + lineage);
    from = " --in " + lineage;
  }
  ExpectBlock("123", {kKeys[0], kKeys[1]}, kKeys[0], kForSdk28 + " --lineage lineage1");
}

}  // namespace Quill
