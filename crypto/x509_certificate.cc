// SPDX-License-Identifier: Apache-2.0

#include "crypto/x509_certificate.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/mem.h>
#include <openssl/pool.h>

#include "util/log.h"

namespace Quill {

bool X509Certificate::Parse(const std::vector<uint8_t>& der) {
  if (der.empty()) {
    QUILL_LOGE("Input data of certificate is empty\n");
    return false;
  }
  const bssl::UniquePtr<CRYPTO_BUFFER> buffer(
      CRYPTO_BUFFER_new(der.data(), der.size(), /*pool=*/nullptr));
  if (!buffer) {
    QUILL_LOGE("Can't allocate memory for certificate\n");
    return false;
  }
  certificate_.reset(X509_parse_from_buffer(buffer.get()));
  if (!certificate_) {
    // Deliberate: the text names v2 for every scheme.
    QUILL_LOGE("APK V2 has malformed certificate\n");
    return false;
  }
  return true;
}

bool X509Certificate::GetPublicKey(std::vector<uint8_t>& out) {
  if (!certificate_) {
    QUILL_LOGE("X509 certificate is not initialized\n");
    return false;
  }
  ERR_clear_error();  // so that the line below names an error of this certificate
  const bssl::UniquePtr<EVP_PKEY> key(X509_get_pubkey(certificate_.get()));
  if (!key) {
    char reason[ERR_ERROR_STRING_BUF_LEN];
    QUILL_LOGE("Can't get public key from certificate: %s\n",
               ERR_error_string(ERR_get_error(), reason));
    return false;
  }
  uint8_t* der = nullptr;
  const int length = i2d_PUBKEY(key.get(), &der);
  const bssl::UniquePtr<uint8_t> owner(der);
  if (length < 1 || der == nullptr) {
    QUILL_LOGE("Can't convert public key from certificate\n");
    return false;
  }
  out.assign(der, der + length);
  return true;
}

}  // namespace Quill
