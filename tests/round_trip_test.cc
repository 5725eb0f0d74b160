// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <ziparchive/zip_archive.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "tests/support/opened_package.h"

namespace Quill {
namespace {

// A signer's key.
struct Key {
  std::string name;  // of its files
  std::string kind;  // for OpenSSL

  bool IsEc() const { return name[0] == 'P'; }
  std::string Options() const { return " --key " + name + ".pk8 --cert " + name + ".crt"; }
};

std::string Dsa(const std::string& bits, const std::string& orderBits) {
  return "genpkey -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:" + bits +
         " -pkeyopt dsa_paramgen_q_bits:" + orderBits + " | openssl gendsa /dev/stdin";
}

const std::vector<Key> kKeys = {
    {"RSA1024", "genrsa 1024"},
    {"RSA2048", "genrsa 2048"},
    {"RSA3072", "genrsa 3072"},
    {"RSA4096", "genrsa 4096"},
    {"P256", "ecparam -genkey -noout -name prime256v1"},
    {"P384", "ecparam -genkey -noout -name secp384r1"},
    {"P521", "ecparam -genkey -noout -name secp521r1"},
    {"DSA1024", Dsa("1024", "160")},
    {"DSA2048", Dsa("2048", "256")},
    {"DSA3072", Dsa("3072", "256")},
};

// The options save half of the time that Java takes to start.
const std::string kApksigner = "apksigner -JXX:TieredStopAtLevel=1 -JXX:+UseSerialGC ";
const std::string kForSdk28 = " --min-sdk-version 28";

// Where `part` starts the last time.
size_t FindLast(const ByteVector& bytes, const ByteVector& part) {
  const auto found = std::find_end(bytes.begin(), bytes.end(), part.begin(), part.end());
  return static_cast<size_t>(found - bytes.begin());
}

// Where the data of an entry ends.
size_t EndOfEntry(const ByteVector& package, const std::string& name) {
  const LogCapture ignored;
  const Fd file = MemoryFile(package);
  ZipEntry entry{};
  EXPECT_EQ(0, Apk(file.GetFd()).FindEntry(name, &entry)) << name;
  return static_cast<size_t>(entry.offset) + entry.compressed_length;
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

  // Signs the sample by the schemes, which are digits: it verifies by the last, for 3 by the last
  // signer, and no longer with one bit changed in any of the parts that the signature covers.
  void Expect(const std::string& schemes, std::vector<Key> signers, const Key& identity,
              const std::string& options = kForSdk28) {
    std::string line = kApksigner + "sign --in sample.apk --out signed.apk" +
                       " --v4-signing-enabled false" + options;
    for (const std::string scheme : {"1", "2", "3"}) {
      const bool isEnabled = schemes.find(scheme) != std::string::npos;
      line += " --v" + scheme + "-signing-enabled " + (isEnabled ? "true" : "false");
    }
    for (const Key& signer : signers) {
      line += (&signer == &signers[0] ? "" : " --next-signer") + signer.Options();
    }
    SCOPED_TRACE(line);
    Run(line);
    ByteVector package = File("signed.apk");
    const OpenedPackage good(package);
    // The name of a signature block by an EC key ends in EC, which is not looked for.
    ASSERT_EQ(schemes != "1" || !identity.IsEc(), good.isGoodApk) << good;
    if (!good.isGoodApk) return;
    EXPECT_EQ(schemes.back() - '0', good.scheme);
    EXPECT_EQ(ManufacturerKey(identity), Hex(good.key));

    std::vector<size_t> covered;
    if (schemes == "1") {
      const std::string stem = "META-INF/" + identity.name + ".";
      for (const std::string& name :
           std::vector<std::string>{"META-INF/MANIFEST.MF", stem + "SF",
                                    stem + identity.name.substr(0, 3), "classes.dex"}) {
        covered.push_back(EndOfEntry(package, name) - 5);
      }
    } else {
      const size_t record = package.size() - 22;
      uint32_t directory;
      std::memcpy(&directory, &package.at(record + 16), sizeof directory);
      covered = {10, directory - 1, directory + 12, record + 4};  // the first entry, the magic
      if (schemes.back() == '3') signers = {signers.back()};
      for (const Key& signer : signers) {
        const ByteVector publicKey = File(signer.name + ".public");
        const size_t key = FindLast(package, publicKey);  // behind the signature
        covered.push_back(FindLast(package, File(signer.name + ".crt")) + 100);
        covered.insert(covered.end(), {key - 5, key + publicKey.size() - 10});
      }
    }
    for (const size_t offset : covered) {
      package.at(offset) ^= 1;
      EXPECT_FALSE(OpenedPackage(package).isGoodApk) << offset;
      package[offset] ^= 1;
    }
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
    for (const char* schemes : {"1", "2", "3", "12", "123"}) Expect(schemes, {key}, key);
  }
  Expect("1", {kKeys[1]}, kKeys[1], " --min-sdk-version 17");  // SHA-1
  Expect("1", {kKeys[7]}, kKeys[7], " --min-sdk-version 17");
  Expect("2", {kKeys[4], kKeys[1]}, kKeys[4]);
  Expect("2", kKeys, kKeys[0]);

  // A lineage that grows, with a signer of each kind; the oldest key is the identity.
  std::string from;
  for (size_t i = 1; i < kKeys.size(); ++i) {
    const std::string lineage = "lineage" + std::to_string(i);
    Run(kApksigner + "rotate" + from + " --out " + lineage + " --old-signer" +
        kKeys[i - 1].Options() + " --new-signer" + kKeys[i].Options());
    Expect("3", {kKeys[i]}, kKeys[0], kForSdk28 + " --lineage " + lineage);
    from = " --in " + lineage;
  }
  Expect("123", {kKeys[0], kKeys[1]}, kKeys[0], kForSdk28 + " --lineage lineage1");
}

}  // namespace Quill
