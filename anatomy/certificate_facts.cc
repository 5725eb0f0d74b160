// SPDX-License-Identifier: Apache-2.0

#include "anatomy/certificate_facts.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/bytestring.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/mem.h>
#include <openssl/pool.h>
#include <openssl/x509.h>

#include <vector>

#include <quillon/digest.h>

#include "util/text.h"

namespace Quill::Anatomy {
namespace {

std::string Sha256Of(const std::vector<uint8_t>& bytes) {
  const std::vector<uint8_t> digest = ComputeSHA256Digest(bytes);
  return ToHex(digest.data(), digest.size());
}

std::string TextIn(BIO* bio) {
  const uint8_t* data = nullptr;
  size_t size = 0;
  if (BIO_mem_contents(bio, &data, &size) != 1) return "";
  return {reinterpret_cast<const char*>(data), size};
}

// Names stand as other tools print them: the most special part first, as UTF-8.
std::string NameOf(X509_NAME* name) {
  constexpr unsigned long kStyle =  // NOLINT(google-runtime-int): the library's type
      (XN_FLAG_SEP_CPLUS_SPC | XN_FLAG_DN_REV | XN_FLAG_FN_SN | ASN1_STRFLGS_RFC2253) &
      ~ASN1_STRFLGS_ESC_MSB;
  const bssl::UniquePtr<BIO> bio(BIO_new(BIO_s_mem()));
  if (!bio || name == nullptr || X509_NAME_print_ex(bio.get(), name, 0, kStyle) < 0) return "";
  return TextIn(bio.get());
}

std::string TimeOf(const ASN1_TIME* time) {
  const bssl::UniquePtr<ASN1_GENERALIZEDTIME> general(
      time == nullptr ? nullptr
                      : ASN1_TIME_to_generalizedtime(const_cast<ASN1_TIME*>(time), nullptr));
  if (!general) return "";
  const auto* data = reinterpret_cast<const char*>(ASN1_STRING_get0_data(general.get()));
  std::string digits(data, static_cast<size_t>(ASN1_STRING_length(general.get())));
  if (digits.size() < 14) return digits;
  return digits.substr(0, 4) + '-' + digits.substr(4, 2) + '-' + digits.substr(6, 2) + 'T' +
         digits.substr(8, 2) + ':' + digits.substr(10, 2) + ':' + digits.substr(12, 2) +
         digits.substr(14);
}

std::string SerialOf(const X509* certificate) {
  const bssl::UniquePtr<BIGNUM> number(
      ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate), nullptr));
  if (!number) return "";
  const std::unique_ptr<char, void (*)(void*)> digits(BN_bn2hex(number.get()), OPENSSL_free);
  return digits ? digits.get() : "";
}

// Returns the object identifier of the algorithm in a SubjectPublicKeyInfo.
std::string KeyIdentifier(CBS key) {
  CBS info;
  CBS algorithm;
  CBS identifier;
  if (!CBS_get_asn1(&key, &info, CBS_ASN1_SEQUENCE) ||
      !CBS_get_asn1(&info, &algorithm, CBS_ASN1_SEQUENCE) ||
      !CBS_get_asn1(&algorithm, &identifier, CBS_ASN1_OBJECT)) {
    return "";
  }
  const std::unique_ptr<char, void (*)(void*)> text(CBS_asn1_oid_to_text(&identifier),
                                                    OPENSSL_free);
  return text ? text.get() : "";
}

std::vector<uint8_t> Encode(X509_PUBKEY* key) {
  uint8_t* der = nullptr;
  const int length = key == nullptr ? 0 : i2d_X509_PUBKEY(key, &der);
  const bssl::UniquePtr<uint8_t> owner(der);
  if (length < 1) return {};
  return std::vector<uint8_t>(der, der + length);
}

}  // namespace

std::optional<PublicKeyFacts> ReadPublicKey(ByteCursor der) {
  const std::vector<uint8_t> bytes = der.ToVector();
  CBS content;
  CBS_init(&content, bytes.data(), bytes.size());
  const std::string identifier = KeyIdentifier(content);
  if (identifier.empty()) return std::nullopt;
  PublicKeyFacts facts;
  facts.sha256 = Sha256Of(bytes);
  const bssl::UniquePtr<EVP_PKEY> key(EVP_parse_public_key(&content));
  ERR_clear_error();
  facts.type = identifier;
  if (!key) return facts;
  facts.bits = static_cast<uint32_t>(EVP_PKEY_bits(key.get()));
  const int kind = EVP_PKEY_id(key.get());
  if (kind == EVP_PKEY_RSA) facts.type = "RSA";
  if (kind == EVP_PKEY_DSA) facts.type = "DSA";
  if (kind == EVP_PKEY_EC) facts.type = "EC";
  return facts;
}

std::optional<CertificateFacts> ReadCertificate(ByteCursor der) {
  const std::vector<uint8_t> bytes = der.ToVector();
  const bssl::UniquePtr<CRYPTO_BUFFER> buffer(
      CRYPTO_BUFFER_new(bytes.data(), bytes.size(), /*pool=*/nullptr));
  // As the verifier reads it.
  const bssl::UniquePtr<X509> certificate(
      !buffer || bytes.empty() ? nullptr : X509_parse_from_buffer(buffer.get()));
  ERR_clear_error();
  if (!certificate) return std::nullopt;
  CertificateFacts facts;
  facts.subject = NameOf(X509_get_subject_name(certificate.get()));
  facts.issuer = NameOf(X509_get_issuer_name(certificate.get()));
  facts.notBefore = TimeOf(X509_get0_notBefore(certificate.get()));
  facts.notAfter = TimeOf(X509_get0_notAfter(certificate.get()));
  facts.serial = SerialOf(certificate.get());
  facts.sha256 = Sha256Of(bytes);
  const std::vector<uint8_t> key = Encode(X509_get_X509_PUBKEY(certificate.get()));
  facts.key = ReadPublicKey(ByteCursor(key));
  ERR_clear_error();
  return facts;
}

}  // namespace Quill::Anatomy
