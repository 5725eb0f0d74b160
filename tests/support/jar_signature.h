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
// everything else stays valid.
struct JarOptions {
  const SigningKey* key = &TestKey("rsa2048-0");
  std::string digestName = "SHA-256";            // "SHA1" or "SHA-256"
  const EVP_MD* signatureDigest = EVP_sha256();  // of the .SF file, in the signature block
  std::vector<const SigningKey*> certificates;   // default: the key's
  std::string apkSigned;                         // X-Android-APK-Signed of the .SF, none when empty
  // Writes what other verifiers ask for too: the block names its certificate, and the .SF file has
  // a section for each entry.
  bool isComplete = false;
  std::function<void(std::string&)> editManifest;
  std::function<void(std::string&)> editSignatureFile;
  std::function<void(ByteVector&)> editBlock;
};

// Returns META-INF/MANIFEST.MF over the entries, META-INF/CERT.SF over that, and the PKCS #7 block
// over that. The block's name ends in RSA, DSA or EC, by the kind of key.
std::vector<ZipFile> SignJar(const std::vector<ZipFile>& entries, const JarOptions& options = {});

}  // namespace Quill
