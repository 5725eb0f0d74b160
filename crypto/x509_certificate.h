// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <openssl/base.h>
#include <openssl/x509.h>

#include <cstdint>
#include <vector>

namespace Quill {

// A DER X.509 certificate, of which only the public key is used. Its dates, names, extensions and
// its own signature are not checked.
class X509Certificate {
 public:
  X509Certificate() = default;
  virtual ~X509Certificate() = default;

  // Parses `der` and replaces a certificate parsed before. Returns false and logs one error line
  // when `der` is empty or not a certificate.
  [[nodiscard]] bool Parse(const std::vector<uint8_t>& der);
  // Copies the public key as DER SubjectPublicKeyInfo. Returns false, logs one error line and does
  // not change `out` when no certificate was parsed or the kind of its key is not known.
  [[nodiscard]] bool GetPublicKey(std::vector<uint8_t>& out);

 private:
  bssl::UniquePtr<X509> certificate_;
};

}  // namespace Quill
