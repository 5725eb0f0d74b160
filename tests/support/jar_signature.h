// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <openssl/digest.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/signing_key.h"
#include "tests/support/wire.h"

namespace Quill {

enum class Compression { kStored, kDeflated };

struct ZipFile {
  std::string name;
  ByteVector contents;
  Compression compression = Compression::kStored;
};

// How a package's entries are signed. An edit changes one file before the next is made from it, so
// that everything else stays valid.
struct JarOptions {
  const SigningKey* key = &TestKey(KeyType::kRsa2048);
  std::string signer = "CERT";         // META-INF/<signer>.SF
  std::string digestName = "SHA-256";  // or "SHA1", or a name for which there is no digest
  const EVP_MD* signatureDigest = EVP_sha256();  // what the signature block digests the .SF with
  std::vector<const SigningKey*> certificates;   // default: the key's
  std::string apkSigned;                         // X-Android-APK-Signed of the .SF, none when empty
  ByteVector signedAttributes;                   // DER, in the block's signer info
  std::function<void(std::string&)> editManifest;
  std::function<void(std::string&)> editSignatureFile;
  std::function<void(ByteVector&)> editBlock;
};

// META-INF/MANIFEST.MF over the entries, META-INF/<signer>.SF over that, and the PKCS #7 block over
// that, whose name ends in RSA, DSA or EC after the key.
std::vector<ZipFile> SignJar(const std::vector<ZipFile>& entries, const JarOptions& options);

}  // namespace Quill
