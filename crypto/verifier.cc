// SPDX-License-Identifier: Apache-2.0

#include "crypto/verifier.h"

#include <openssl/bn.h>
#include <openssl/digest.h>
#include <openssl/ecdsa.h>
#include <openssl/mem.h>
#include <openssl/x509.h>

#include <utility>

#include "crypto/number.h"

namespace Quill {
namespace {

// Parses `der` into `key`. Trailing bytes make this false, after `key` was replaced.
template <typename Key>
bool ParseKey(Key* (*parse)(Key**, const uint8_t**, long), const std::vector<uint8_t>& der,
              bssl::UniquePtr<Key>& key) {
  const uint8_t* cursor = der.data();
  key.reset(parse(nullptr, &cursor, static_cast<long>(der.size())));
  return key && cursor != der.data() && cursor == der.data() + der.size();
}

// The work of every Init: parses the key, and keeps the digest object of a good one.
template <typename Key>
bool InitVerifier(Key* (*parse)(Key**, const uint8_t**, long), const std::vector<uint8_t>& der,
                  std::unique_ptr<Hash> hash, bssl::UniquePtr<Key>& key,
                  std::unique_ptr<Hash>& keptHash) {
  if (!ParseKey(parse, der, key)) return false;
  keptHash = std::move(hash);
  return true;
}

}  // namespace

bool RSAVerifier::Init(const std::vector<uint8_t>& publicKeyDer, std::unique_ptr<Hash> hash) {
  return InitVerifier(d2i_RSA_PUBKEY, publicKeyDer, std::move(hash), key_, hash_);
}

bool RSAVerifier::GetPublicKey(std::vector<uint8_t>& out) const {
  if (!key_) return false;
  const BIGNUM* modulus = nullptr;
  RSA_get0_key(key_.get(), &modulus, nullptr, nullptr);
  if (modulus == nullptr) return false;
  const size_t size = RSA_size(key_.get());
  if (size == 0 || BN_num_bytes(modulus) != size) return false;
  out = NumberToBytes(modulus);
  return true;
}

bool RSAVerifier::Verify(const std::vector<uint8_t>& data, std::vector<uint8_t> signature) const {
  const std::vector<uint8_t> digest = hash_->Digest(data);
  return RSA_verify(hash_->Type(), digest.data(), digest.size(), signature.data(), signature.size(),
                    key_.get()) == 1;
}

bool RSAPSSVerifier::Verify(const std::vector<uint8_t>& data,
                            std::vector<uint8_t> signature) const {
  const std::vector<uint8_t> digest = hash_->Digest(data);
  const EVP_MD* md = EVP_get_digestbynid(hash_->Type());
  if (md == nullptr) return false;
  constexpr int kSaltAsLongAsDigest = -1;
  return RSA_verify_pss_mgf1(key_.get(), digest.data(), digest.size(), md, /*mgf1_md=*/nullptr,
                             kSaltAsLongAsDigest, signature.data(), signature.size()) == 1;
}

bool DSAVerifier::Init(const std::vector<uint8_t>& publicKeyDer, std::unique_ptr<Hash> hash) {
  return InitVerifier(d2i_DSA_PUBKEY, publicKeyDer, std::move(hash), key_, hash_);
}

bool DSAVerifier::GetPublicKey(std::vector<uint8_t>& out) const {
  if (!key_) return false;
  const BIGNUM* q = nullptr;  // DSA_size needs it, and a key may leave its parameters out
  DSA_get0_pqg(key_.get(), nullptr, &q, nullptr);
  if (q == nullptr || DSA_size(key_.get()) == 0) return false;
  const BIGNUM* publicValue = nullptr;
  DSA_get0_key(key_.get(), &publicValue, nullptr);
  if (publicValue == nullptr || BN_num_bytes(publicValue) == 0) return false;
  out = NumberToBytes(publicValue);
  return true;
}

bool DSAVerifier::Verify(const std::vector<uint8_t>& data, std::vector<uint8_t> signature) const {
  const std::vector<uint8_t> digest = hash_->Digest(data);
  return DSA_verify(hash_->Type(), digest.data(), digest.size(), signature.data(), signature.size(),
                    key_.get()) == 1;
}

bool ECDSAVerifier::Init(const std::vector<uint8_t>& publicKeyDer, std::unique_ptr<Hash> hash) {
  return InitVerifier(d2i_EC_PUBKEY, publicKeyDer, std::move(hash), key_, hash_);
}

bool ECDSAVerifier::GetPublicKey(std::vector<uint8_t>& out) const {
  if (!key_ || ECDSA_size(key_.get()) == 0) return false;
  const EC_GROUP* group = EC_KEY_get0_group(key_.get());
  const EC_POINT* point = EC_KEY_get0_public_key(key_.get());
  if (group == nullptr || point == nullptr) return false;

  unsigned char* encoded = nullptr;
  const size_t length = EC_POINT_point2buf(group, point, EC_KEY_get_conv_form(key_.get()), &encoded,
                                           /*ctx=*/nullptr);
  const bssl::UniquePtr<uint8_t> owner(encoded);
  constexpr size_t kDropped = 2;
  if (length < kDropped) return false;
  // Deliberate: the marker and the first byte of X are dropped, not the marker alone.
  out.assign(encoded + kDropped, encoded + length);
  return true;
}

bool ECDSAVerifier::Verify(const std::vector<uint8_t>& data, std::vector<uint8_t> signature) const {
  const std::vector<uint8_t> digest = hash_->Digest(data);
  return ECDSA_verify(hash_->Type(), digest.data(), digest.size(), signature.data(),
                      signature.size(), key_.get()) == 1;
}

size_t ECDSAVerifier::EC_POINT_point2buf(const EC_GROUP* group, const EC_POINT* point,
                                         point_conversion_form_t form, unsigned char** buffer,
                                         BN_CTX* ctx) {
  const size_t length = EC_POINT_point2oct(group, point, form, nullptr, 0, ctx);
  if (length == 0) return 0;
  bssl::UniquePtr<uint8_t> encoded(static_cast<uint8_t*>(OPENSSL_malloc(length)));
  if (!encoded || EC_POINT_point2oct(group, point, form, encoded.get(), length, ctx) != length) {
    return 0;
  }
  *buffer = encoded.release();
  return length;
}

}  // namespace Quill
