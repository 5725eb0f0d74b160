// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <openssl/base.h>

#include <cstdint>

#include "tests/support/wire.h"

namespace Quill {

enum class KeyType { kRsa2048, kP256, kP384, kP521, kDsa1024 };

// A key pair with a certificate, which another key issued when its own kind cannot.
struct SigningKey {
  bssl::UniquePtr<EVP_PKEY> key;
  ByteVector publicKey;    // DER SubjectPublicKeyInfo
  ByteVector certificate;  // DER
  uint32_t algorithmId;    // a v2 and v3 signature algorithm that suits the key
};

// Keys are made on first use and kept; `number` tells several of one type apart.
const SigningKey& TestKey(KeyType type, int number = 0);

// A well-formed certificate whose public key no library knows what to do with.
ByteVector CertificateOfUnknownKeyKind();

ByteVector DigestOf(const EVP_MD* md, const ByteVector& data);

// The digest of the v2 and v3 signature algorithm.
const EVP_MD* AlgorithmDigest(uint32_t algorithmId);

// The key's signature over `data`, for RSA by PKCS #1 v1.5 or by PSS.
ByteVector Sign(const SigningKey& key, const EVP_MD* md, const ByteVector& data,
                bool isPss = false);
// The same by a v2 and v3 signature algorithm; only its padding and its digest are looked at.
ByteVector Sign(const SigningKey& key, uint32_t algorithmId, const ByteVector& data);

}  // namespace Quill
