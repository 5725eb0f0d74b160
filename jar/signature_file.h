// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <quillon/manifest_mf.h>

namespace Quill {

// META-INF/NAME.RSA or META-INF/NAME.DSA: the PKCS #7 block that signs the signature file
// META-INF/NAME.SF.
struct SignatureBlock {
  std::vector<uint8_t> bytes;
  bool isDsa = false;
};

// Returns true when `block` signs the bytes of the signature file. `name` is the file's entry name,
// for the log. False logs one error line. `publicKey` is set to the signer's key bytes, an RSA
// modulus or a DSA public value, once the block was found to hold a key of its kind, even when the
// signature then does not verify.
[[nodiscard]] bool VerifySignatureFile(const SignatureBlock& block,
                                       const std::vector<uint8_t>& signatureFile,
                                       const std::string& name, std::vector<uint8_t>& publicKey);

// The digest of the whole manifest in a signature file. Both members are empty when the file has
// none; the value is empty also when it is not Base64.
struct ManifestDigest {
  std::string name;  // such as "SHA-256-Digest"
  std::vector<uint8_t> value;
};
[[nodiscard]] ManifestDigest FindManifestDigest(const ManifestMf& signatureFile);

}  // namespace Quill
