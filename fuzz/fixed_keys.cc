// SPDX-License-Identifier: Apache-2.0

#include "fuzz/fixed_keys.h"

#include <openssl/bn.h>
#include <openssl/ec_key.h>
#include <openssl/evp.h>
#include <openssl/mem.h>
#include <openssl/nid.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>

#include "fuzz/fuzzing.h"

namespace Quill {
namespace {

constexpr const char* kRule = "keys are made";

bssl::UniquePtr<EVP_PKEY> MakeEcKey(uint32_t scalar) {
  bssl::UniquePtr<EC_KEY> ec(EC_KEY_new_by_curve_name(NID_X9_62_prime256v1));
  const EC_GROUP* group = EC_KEY_get0_group(ec.get());
  const bssl::UniquePtr<BIGNUM> number(BN_new());
  const bssl::UniquePtr<EC_POINT> point(EC_POINT_new(group));
  bssl::UniquePtr<EVP_PKEY> key(EVP_PKEY_new());
  Require(BN_set_word(number.get(), scalar) &&
              EC_POINT_mul(group, point.get(), number.get(), nullptr, nullptr, nullptr) &&
              EC_KEY_set_private_key(ec.get(), number.get()) &&
              EC_KEY_set_public_key(ec.get(), point.get()) &&
              EVP_PKEY_assign_EC_KEY(key.get(), ec.release()),
          kRule);
  return key;
}

// Returns 2^exponent - 1.
bssl::UniquePtr<BIGNUM> Mersenne(int exponent) {
  bssl::UniquePtr<BIGNUM> number(BN_new());
  Require(BN_set_bit(number.get(), exponent) && BN_sub_word(number.get(), 1), kRule);
  return number;
}

// The primes are two Mersenne primes. Their product is long enough for the largest digest.
bssl::UniquePtr<EVP_PKEY> MakeRsaKey() {
  const bssl::UniquePtr<BIGNUM> p = Mersenne(607);
  const bssl::UniquePtr<BIGNUM> q = Mersenne(521);
  bssl::UniquePtr<BIGNUM> n(BN_new());
  bssl::UniquePtr<BIGNUM> e(BN_new());
  bssl::UniquePtr<BIGNUM> d(BN_new());
  const bssl::UniquePtr<BIGNUM> order(BN_new());
  const bssl::UniquePtr<BN_CTX> context(BN_CTX_new());
  Require(BN_mul(n.get(), p.get(), q.get(), context.get()) && BN_sub_word(p.get(), 1) &&
              BN_sub_word(q.get(), 1) && BN_mul(order.get(), p.get(), q.get(), context.get()) &&
              BN_set_word(e.get(), RSA_F4) &&
              BN_mod_inverse(d.get(), e.get(), order.get(), context.get()),
          kRule);
  bssl::UniquePtr<RSA> rsa(RSA_new());
  bssl::UniquePtr<EVP_PKEY> key(EVP_PKEY_new());
  Require(RSA_set0_key(rsa.get(), n.release(), e.release(), d.release()) &&
              EVP_PKEY_assign_RSA(key.get(), rsa.release()),
          kRule);
  return key;
}

template <typename Object>
ByteVector Encode(int (*encode)(Object*, uint8_t**), Object* object) {
  uint8_t* der = nullptr;
  const int length = encode(object, &der);
  Require(length > 0, kRule);
  const bssl::UniquePtr<uint8_t> owner(der);
  return {der, der + length};
}

// Makes a certificate without names, valid from and to the start of the epoch.
ByteVector MakeCertificate(EVP_PKEY* key, EVP_PKEY* issuer) {
  const bssl::UniquePtr<X509> certificate(X509_new());
  Require(ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1) &&
              ASN1_TIME_set(X509_getm_notBefore(certificate.get()), 0) &&
              ASN1_TIME_set(X509_getm_notAfter(certificate.get()), 0) &&
              X509_set_pubkey(certificate.get(), key) &&
              X509_sign(certificate.get(), issuer, EVP_sha256()),
          kRule);
  return Encode(i2d_X509, certificate.get());
}

std::vector<SigningKey> MakeKeys() {
  std::vector<SigningKey> keys;
  for (const uint32_t scalar : {1000003U, 1000033U, 1000037U}) {
    keys.push_back({MakeEcKey(scalar), {}, {}, 0x0201});
  }
  keys.push_back({MakeRsaKey(), {}, {}, 0x0103});
  EVP_PKEY* issuer = keys.back().key.get();  // an RSA key, whose signatures do not vary
  for (SigningKey& key : keys) {
    key.publicKey = Encode<const EVP_PKEY>(i2d_PUBKEY, key.key.get());
    key.certificate = MakeCertificate(key.key.get(), issuer);
  }
  return keys;
}

}  // namespace

const std::vector<SigningKey>& FixedKeys() {
  static const std::vector<SigningKey> keys = MakeKeys();
  return keys;
}

const SigningKey* FindFixedKey(const ByteVector& publicKey) {
  const auto found =
      std::find_if(FixedKeys().begin(), FixedKeys().end(),
                   [&publicKey](const SigningKey& key) { return key.publicKey == publicKey; });
  return found == FixedKeys().end() ? nullptr : &*found;
}

ByteVector SignAnyway(const SigningKey& key, uint32_t algorithmId, const ByteVector& data) {
  const bool isRsa = EVP_PKEY_id(key.key.get()) == EVP_PKEY_RSA;
  return isRsa ? Sign(key, algorithmId, data) : Sign(key, AlgorithmDigest(algorithmId), data);
}

}  // namespace Quill
