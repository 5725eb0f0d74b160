// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "util/byte_cursor.h"

// What a certificate and a public key say of themselves. Nothing here is verified or logged.

namespace Quill::Anatomy {

struct PublicKeyFacts {
  std::string type;  // "RSA", "DSA", "EC", or the object identifier of another kind
  uint32_t bits = 0;
  std::string sha256;  // of the DER SubjectPublicKeyInfo, in hexadecimal
};

struct CertificateFacts {
  std::string subject;    // such as "CN=name, O=company", as it stands in the certificate
  std::string issuer;     // the same
  std::string notBefore;  // such as "2020-01-01T00:00:00Z"
  std::string notAfter;
  std::string serial;  // in hexadecimal
  std::string sha256;  // of the DER certificate, in hexadecimal
  std::optional<PublicKeyFacts> key;
};

// Return nothing for bytes that are no certificate, or no key of a kind that the crypto library
// knows.
[[nodiscard]] std::optional<CertificateFacts> ReadCertificate(ByteCursor der);
[[nodiscard]] std::optional<PublicKeyFacts> ReadPublicKey(ByteCursor der);

}  // namespace Quill::Anatomy
