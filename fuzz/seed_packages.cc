// SPDX-License-Identifier: Apache-2.0

#include "fuzz/seed_packages.h"

#include <openssl/digest.h>

#include "fuzz/fixed_keys.h"
#include "tests/support/package_builder.h"

namespace Quill {

std::vector<ByteVector> SeedPackages() {
  const auto start = [] {
    return PackageBuilder()
        .Manifest(
            BinaryXml({{"manifest", {{"package", "org.quillon.test"}}},
                       {"uses-permission", {{"name", "com.vrk.android.SECURE_STORAGE"}}},
                       {"meta-data", {{"name", "access"}, {"value", "SS_META"}, {"level", 1U}}}}))
        .Entry("classes.dex", {'d', 'e', 'x'}, Compression::kDeflated);
  };
  std::vector<ByteVector> packages = {start().Build()};
  for (const std::string& name :
       {std::string("rsa2048-0"), FixedKeyNames().front(), std::string("p384-0"),
        std::string("p521-0"), std::string("dsa1024-0")}) {
    SignerOptions signer;
    signer.key = &TestKey(name);
    packages.push_back(start().V2({signer}).Build());
    packages.push_back(start().V3({signer}).Build());
    JarOptions options;
    options.key = signer.key;
    options.isComplete = true;
    packages.push_back(start().JarSignature(options).Build());
  }

  JarOptions options;
  options.key = &FixedKeys().back();
  options.isComplete = true;
  options.digestName = "SHA1";
  options.signatureDigest = EVP_sha1();
  packages.push_back(start().JarSignature(options).Comment({'P', 'K', 5, 6}).Build());
  options.digestName = "SHA-256";
  options.signatureDigest = EVP_md5();
  options.apkSigned = "2,3";
  packages.push_back(start().JarSignature(options).Build());

  SignerOptions newest;
  SignerOptions other;
  newest.key = &FixedKeys()[0];
  other.key = &FixedKeys()[1];
  packages.push_back(start().JarSignature(options).V2({newest, other}).Build());
  newest.attributes = {LineageAttribute(Lineage({&FixedKeys().back(), other.key, newest.key}))};
  packages.push_back(start().V2().V3({newest}).Pair(0x42726577, {0, 0, 0}).Build());
  return packages;
}

}  // namespace Quill
