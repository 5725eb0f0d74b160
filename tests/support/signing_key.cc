// SPDX-License-Identifier: Apache-2.0

#include "tests/support/signing_key.h"

#include <openssl/digest.h>
#include <openssl/dsa.h>
#include <openssl/evp.h>
#include <openssl/mem.h>
#include <openssl/nid.h>
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

// `size` is the modulus length in bits, or the curve's identifier.
EVP_PKEY* Generate(int kind, int size) {
  const bssl::UniquePtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_id(kind, nullptr));
  const auto setSize = kind == EVP_PKEY_RSA ? EVP_PKEY_CTX_set_rsa_keygen_bits
                                            : EVP_PKEY_CTX_set_ec_paramgen_curve_nid;
  EVP_PKEY* key = nullptr;
  Require(EVP_PKEY_keygen_init(context.get()) && setSize(context.get(), size) &&
          EVP_PKEY_keygen(context.get(), &key));
  return key;
}

// EVP neither makes DSA keys nor signs with them.
EVP_PKEY* GenerateDsa() {
  bssl::UniquePtr<DSA> dsa(DSA_new());
  bssl::UniquePtr<EVP_PKEY> key(EVP_PKEY_new());
  Require(DSA_generate_parameters_ex(dsa.get(), 1024, nullptr, 0, nullptr, nullptr, nullptr) &&
          DSA_generate_key(dsa.get()) && EVP_PKEY_assign_DSA(key.get(), dsa.release()));
  return key.release();
}

template <typename Object>
ByteVector Encode(int (*encode)(Object*, uint8_t**), Object* object) {
  uint8_t* der = nullptr;
  const int length = encode(object, &der);
  Require(length > 0);
  const bssl::UniquePtr<uint8_t> owner(der);
  return {der, der + length};
}

ByteVector MakeCertificate(EVP_PKEY* key, EVP_PKEY* issuer) {
  const bssl::UniquePtr<X509> certificate(X509_new());
  X509_NAME* name = X509_get_subject_name(certificate.get());
  const auto* text = reinterpret_cast<const uint8_t*>("quillon test");
  Require(X509_set_version(certificate.get(), X509_VERSION_3) &&
          ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1) &&
          X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text, -1, -1, 0) &&
          X509_set_issuer_name(certificate.get(), name) &&
          X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0) &&
          X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600) &&
          X509_set_pubkey(certificate.get(), key) &&
          X509_sign(certificate.get(), issuer, EVP_sha256()));
  return Encode(i2d_X509, certificate.get());
}

SigningKey MakeKey(KeyType type) {
  static const std::map<KeyType, std::pair<int, uint32_t>> kKinds = {
      {KeyType::kRsa2048, {2048, 0x0103}},       {KeyType::kP256, {NID_X9_62_prime256v1, 0x0201}},
      {KeyType::kP384, {NID_secp384r1, 0x0202}}, {KeyType::kP521, {NID_secp521r1, 0x0202}},
      {KeyType::kDsa1024, {0, 0x0301}},
  };
  const auto& [size, algorithmId] = kKinds.at(type);
  const bool isDsa = type == KeyType::kDsa1024;
  SigningKey made;
  made.algorithmId = algorithmId;
  made.key.reset(isDsa ? GenerateDsa()
                       : Generate(type == KeyType::kRsa2048 ? EVP_PKEY_RSA : EVP_PKEY_EC, size));
  made.publicKey = Encode<const EVP_PKEY>(i2d_PUBKEY, made.key.get());
  const SigningKey& issuer = isDsa ? TestKey(KeyType::kP256) : made;
  made.certificate = MakeCertificate(made.key.get(), issuer.key.get());
  return made;
}

}  // namespace

const SigningKey& TestKey(KeyType type, int number) {
  static std::map<std::pair<KeyType, int>, SigningKey> keys;
  const auto found = keys.find({type, number});
  if (found != keys.end()) return found->second;
  return keys.emplace(std::pair(type, number), MakeKey(type)).first->second;
}

ByteVector CertificateOfUnknownKeyKind() {
  ByteVector certificate = TestKey(KeyType::kP256).certificate;
  const ByteVector kEcKeyOid = {0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02, 0x01};
  const auto oid =
      std::search(certificate.begin(), certificate.end(), kEcKeyOid.begin(), kEcKeyOid.end());
  oid[6] = 0x7f;
  return certificate;
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
