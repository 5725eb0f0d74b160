// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <openssl/base.h>
#include <openssl/x509.h>

#include <cstdint>
#include <vector>

namespace Quill {

// A DER X.509 certificate, asked for nothing but its public key: its dates, names and extensions
// and its own signature are not looked at.
class X509Certificate {
 public:
  X509Certificate() = default;
  virtual ~X509Certificate() = default;

  // Parses `der`, dropping a certificate parsed before. Returns false and logs one error line when
  // it is empty or not a certificate.
  bool Parse(const std::vector<uint8_t>& der);
  // The public key as DER SubjectPublicKeyInfo. Returns false, logs one error line and leaves `out`
  // when no certificate was parsed or its key is of no known kind.
  bool GetPublicKey(std::vector<uint8_t>& out);

 private:
  bssl::UniquePtr<X509> certificate_;
};

}  // namespace Quill
