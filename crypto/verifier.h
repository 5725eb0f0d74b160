// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <openssl/base.h>
#include <openssl/dsa.h>
#include <openssl/ec.h>
#include <openssl/ec_key.h>
#include <openssl/rsa.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "crypto/hash.h"

namespace Quill {

// Verifies one signature with one public key. A new object is empty: call Init once, then Verify
// once. Nothing here logs. Virtual functions stand in binary order.
class Verifier {
 public:
  virtual ~Verifier() = default;
  // Parses `publicKeyDer`, a DER SubjectPublicKeyInfo without trailing bytes, and takes ownership
  // of `hash`, a fresh digest object of the signature's digest algorithm. Returns false when the
  // key is not of this verifier's type or not well formed; `hash` is then destroyed.
  [[nodiscard]] virtual bool Init(const std::vector<uint8_t>& publicKeyDer,
                                  std::unique_ptr<Hash> hash) = 0;
  // Copies the bytes that stand for the key; each class says which. Returns false when there are
  // none; `out` may have changed even then.
  [[nodiscard]] virtual bool GetPublicKey(std::vector<uint8_t>& out) const = 0;
  // Returns true when `signature` is the key's signature over `data`. Deliberate: the digest object
  // is not restarted, so a second call continues from the state that the first one left.
  [[nodiscard]] virtual bool Verify(const std::vector<uint8_t>& data,
                                    std::vector<uint8_t> signature) const = 0;

 protected:
  std::unique_ptr<Hash> hash_;
};

// PKCS #1 v1.5. The public key is the modulus, big-endian, as long as the key.
class RSAVerifier : public Verifier {
 public:
  [[nodiscard]] bool Init(const std::vector<uint8_t>& publicKeyDer,
                          std::unique_ptr<Hash> hash) override;
  [[nodiscard]] bool GetPublicKey(std::vector<uint8_t>& out) const override;
  [[nodiscard]] bool Verify(const std::vector<uint8_t>& data,
                            std::vector<uint8_t> signature) const override;

 protected:
  bssl::UniquePtr<RSA> key_;
};

// PSS, with MGF1 over the signature's digest and a salt as long as that digest.
class RSAPSSVerifier : public RSAVerifier {
 public:
  [[nodiscard]] bool Verify(const std::vector<uint8_t>& data,
                            std::vector<uint8_t> signature) const override;
};

// DSA with DER signatures. The public key is the public value y, big-endian, without leading zeros.
class DSAVerifier : public Verifier {
 public:
  [[nodiscard]] bool Init(const std::vector<uint8_t>& publicKeyDer,
                          std::unique_ptr<Hash> hash) override;
  [[nodiscard]] bool GetPublicKey(std::vector<uint8_t>& out) const override;
  [[nodiscard]] bool Verify(const std::vector<uint8_t>& data,
                            std::vector<uint8_t> signature) const override;

 private:
  bssl::UniquePtr<DSA> key_;
};

// ECDSA with DER signatures. The public key is the encoded point without its first two bytes, in
// the key's own conversion form: for an uncompressed P-256 point 63 bytes.
class ECDSAVerifier : public Verifier {
 public:
  [[nodiscard]] bool Init(const std::vector<uint8_t>& publicKeyDer,
                          std::unique_ptr<Hash> hash) override;
  [[nodiscard]] bool GetPublicKey(std::vector<uint8_t>& out) const override;
  [[nodiscard]] bool Verify(const std::vector<uint8_t>& data,
                            std::vector<uint8_t> signature) const override;

  // Encodes `point` into a buffer that the caller releases with OPENSSL_free. Returns its length in
  // bytes. On failure returns 0; there is then no buffer to release.
  [[nodiscard]] static size_t EC_POINT_point2buf(const EC_GROUP* group, const EC_POINT* point,
                                                 point_conversion_form_t form,
                                                 unsigned char** buffer, BN_CTX* ctx);

 private:
  bssl::UniquePtr<EC_KEY> key_;
};

}  // namespace Quill
