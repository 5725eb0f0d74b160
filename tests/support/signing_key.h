// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <openssl/base.h>

#include <cstdint>
#include <string>

#include "tests/support/wire.h"

namespace Quill {

// A key pair with a certificate.
struct SigningKey {
  bssl::UniquePtr<EVP_PKEY> key;
  ByteVector publicKey;    // DER SubjectPublicKeyInfo
  ByteVector certificate;  // DER
  uint32_t algorithmId;    // a v2 and v3 signature algorithm that suits the key
};

// Reads tests/keys/<name>.pem: a private key and a certificate of its public key. The keys are the
// same in every run, which the fuzz corpora rely on.
SigningKey LoadKey(const std::string& name);

// Returns the same, read on first use and kept.
const SigningKey& TestKey(const std::string& name);

ByteVector DigestOf(const EVP_MD* md, const ByteVector& data);

// Returns the digest of a v2 and v3 signature algorithm; SHA-256 for IDs that it does not know.
const EVP_MD* AlgorithmDigest(uint32_t algorithmId);

// Signs `data`; RSA keys pad by PKCS #1 v1.5 or by PSS.
ByteVector Sign(const SigningKey& key, const EVP_MD* md, const ByteVector& data,
                bool isPss = false);
// Signs `data` with the padding and the digest of a v2 and v3 signature algorithm.
ByteVector Sign(const SigningKey& key, uint32_t algorithmId, const ByteVector& data);

}  // namespace Quill
