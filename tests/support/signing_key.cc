// SPDX-License-Identifier: Apache-2.0

#include "tests/support/signing_key.h"

#include <openssl/bio.h>
#include <openssl/digest.h>
#include <openssl/dsa.h>
#include <openssl/evp.h>
#include <openssl/mem.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <map>
#include <stdexcept>
#include <utility>

namespace Quill {
namespace {

void Require(bool done) {
  if (!done) throw std::runtime_error("crypto library");
}

template <typename Object>
ByteVector Encode(int (*encode)(Object*, uint8_t**), Object* object) {
  uint8_t* der = nullptr;
  const int length = encode(object, &der);
  Require(length > 0);
  const bssl::UniquePtr<uint8_t> owner(der);
  return {der, der + length};
}

}  // namespace

SigningKey LoadKey(const std::string& name) {
  const std::string path = QUILLON_KEYS_DIR "/" + name + ".pem";
  const bssl::UniquePtr<BIO> file(BIO_new_file(path.c_str(), "r"));
  Require(file != nullptr);
  bssl::UniquePtr<EVP_PKEY> key(PEM_read_bio_PrivateKey(file.get(), nullptr, nullptr, nullptr));
  const bssl::UniquePtr<X509> certificate(PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr));
  Require(key != nullptr && certificate != nullptr);
  ByteVector publicKey = Encode<const EVP_PKEY>(i2d_PUBKEY, key.get());
  const int kind = EVP_PKEY_id(key.get());
  const uint32_t algorithmId = kind == EVP_PKEY_RSA              ? 0x0103
                               : kind == EVP_PKEY_DSA            ? 0x0301
                               : EVP_PKEY_bits(key.get()) <= 256 ? 0x0201
                                                                 : 0x0202;
  return {std::move(key), publicKey, Encode(i2d_X509, certificate.get()), algorithmId};
}

const SigningKey& TestKey(const std::string& name) {
  static std::map<std::string, SigningKey> keys;
  const auto found = keys.find(name);
  return found != keys.end() ? found->second : keys.emplace(name, LoadKey(name)).first->second;
}

ByteVector DigestOf(const EVP_MD* md, const ByteVector& data) {
  ByteVector digest(EVP_MD_size(md));
  Require(EVP_Digest(data.data(), data.size(), digest.data(), nullptr, md, nullptr));
  return digest;
}

const EVP_MD* AlgorithmDigest(uint32_t algorithmId) {
  const bool isSha512 = algorithmId == 0x0102 || algorithmId == 0x0104 || algorithmId == 0x0202;
  return isSha512 ? EVP_sha512() : EVP_sha256();
}

ByteVector Sign(const SigningKey& key, const EVP_MD* md, const ByteVector& data, bool isPss) {
  ByteVector signature(static_cast<size_t>(EVP_PKEY_size(key.key.get())));
  size_t length = signature.size();
  if (const DSA* dsa = EVP_PKEY_get0_DSA(key.key.get())) {
    const ByteVector digest = DigestOf(md, data);
    unsigned dsaLength = 0;
    Require(DSA_sign(0, digest.data(), digest.size(), signature.data(), &dsaLength, dsa));
    length = dsaLength;
  } else {
    bssl::ScopedEVP_MD_CTX context;
    EVP_PKEY_CTX* keyContext = nullptr;
    Require(EVP_DigestSignInit(context.get(), &keyContext, md, nullptr, key.key.get()));
    if (isPss) {
      constexpr int kSaltAsLongAsDigest = -1;
      Require(EVP_PKEY_CTX_set_rsa_padding(keyContext, RSA_PKCS1_PSS_PADDING) &&
              EVP_PKEY_CTX_set_rsa_pss_saltlen(keyContext, kSaltAsLongAsDigest));
    }
    Require(EVP_DigestSign(context.get(), signature.data(), &length, data.data(), data.size()));
  }
  signature.resize(length);
  return signature;
}

ByteVector Sign(const SigningKey& key, uint32_t algorithmId, const ByteVector& data) {
  const bool isPss = algorithmId == 0x0101 || algorithmId == 0x0102;
  return Sign(key, AlgorithmDigest(algorithmId), data, isPss);
}

}  // namespace Quill
