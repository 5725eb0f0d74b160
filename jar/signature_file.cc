// SPDX-License-Identifier: Apache-2.0

#include "jar/signature_file.h"

#include <openssl/bytestring.h>
#include <openssl/digest.h>
#include <openssl/dsa.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/mem.h>
#include <openssl/nid.h>
#include <openssl/pkcs7.h>
#include <openssl/rsa.h>
#include <openssl/stack.h>
#include <openssl/x509.h>

#include <memory>
#include <string_view>

#include <quillon/base64.h>
#include <quillon/digest.h>

#include "crypto/number.h"
#include "findings/acceptance.h"
#include "findings/refusal.h"
#include "jar/pkcs7.h"
#include "util/log.h"
#include "util/text.h"

namespace Quill {
namespace {

// The digest that the block's signature covers.
struct SignedDigest {
  int nid = NID_undef;
  std::vector<uint8_t> value;
};

std::string LibraryError() {
  char text[ERR_ERROR_STRING_BUF_LEN];
  return ERR_error_string(ERR_get_error(), text);
}

// Returns the object identifier of an algorithm in dots, or an empty text.
std::string IdentifierOf(CBS algorithm) {
  CBS fields;
  CBS identifier;
  if (!CBS_get_asn1(&algorithm, &fields, CBS_ASN1_SEQUENCE) ||
      !CBS_get_asn1(&fields, &identifier, CBS_ASN1_OBJECT)) {
    return "";
  }
  const std::unique_ptr<char, void (*)(void*)> text(CBS_asn1_oid_to_text(&identifier),
                                                    OPENSSL_free);
  return text ? text.get() : "";
}

bool DigestSignatureFile(CBS algorithm, const std::vector<uint8_t>& signatureFile,
                         SignedDigest& out) {
  CBS rest = algorithm;
  const EVP_MD* md = EVP_parse_digest_algorithm(&rest);
  if (md == nullptr) {
    QUILL_LOGE("Can't parse digest algo\n");
    return Refuse(Reason::kJarBlockDigestUnsupported, IdentifierOf(algorithm));
  }
  out.nid = EVP_MD_type(md);
  switch (out.nid) {
    case NID_md5:
      Warn(Warning::kWeakDigest, 0, "MD5");
      ComputeMD5Digest(signatureFile, out.value);
      return true;
    case NID_sha1:
      Warn(Warning::kWeakDigest, 0, "SHA-1");
      ComputeSHA1Digest(signatureFile, out.value);
      return true;
    case NID_sha256:
      ComputeSHA256Digest(signatureFile, out.value);
      return true;
    default:
      QUILL_LOGE("Unknown hashing algorithm\n");
      return Refuse(Reason::kJarBlockDigestUnsupported, OBJ_nid2sn(out.nid));
  }
}

// Returns the key of the block's last certificate. Null logs one error line.
bssl::UniquePtr<EVP_PKEY> SignerKey(const std::vector<uint8_t>& block,
                                    bssl::UniquePtr<X509>& certificate) {
  const bssl::UniquePtr<STACK_OF(X509)> certificates(sk_X509_new_null());
  CBS content;
  CBS_init(&content, block.data(), block.size());
  bssl::UniquePtr<EVP_PKEY> key;
  if (certificates && PKCS7_get_certificates(certificates.get(), &content) == 1 &&
      sk_X509_num(certificates.get()) != 0) {
    // Deliberate: the last certificate counts, even if the signer's own stands before it.
    const size_t last = sk_X509_num(certificates.get()) - 1;
    certificate = bssl::UpRef(sk_X509_value(certificates.get(), last));
    key.reset(X509_get_pubkey(certificate.get()));
    if (last != 0) Warn(Warning::kSeveralCertificates, last + 1);
  }
  if (!key) QUILL_LOGE("can not get public key(%s)\n", LibraryError().c_str());
  return key;
}

void NoteSigner(X509* certificate, EVP_PKEY* key) {
  const auto encode = [](auto function, auto* object) {
    uint8_t* bytes = nullptr;
    const int size = function(object, &bytes);
    const bssl::UniquePtr<uint8_t> owner(bytes);
    return size <= 0 ? std::vector<uint8_t>() : std::vector<uint8_t>(bytes, bytes + size);
  };
  AcceptSigner({encode(i2d_X509, certificate), encode(i2d_PUBKEY, key)});
}

// Check a signature with a key of their kind. They set `publicKey` to the signer's key bytes and
// `result` to the crypto library's result, 1 for a good signature. Return false and log one error
// line when the check cannot be made; `publicKey` is then set if the key was of the right kind.
bool CheckRsa(EVP_PKEY* key, const SignedDigest& digest, CBS signature,
              std::vector<uint8_t>& publicKey, int& result) {
  const bssl::UniquePtr<RSA> rsa(EVP_PKEY_get1_RSA(key));
  if (!rsa) {
    QUILL_LOGE("can not get rsa contex(%s)\n", LibraryError().c_str());
    return Refuse(Reason::kJarKeyUnusable);
  }
  const BIGNUM* modulus = nullptr;
  RSA_get0_key(rsa.get(), &modulus, nullptr, nullptr);
  publicKey = NumberToBytes(modulus);
  result = RSA_verify(digest.nid, digest.value.data(), digest.value.size(), CBS_data(&signature),
                      CBS_len(&signature), rsa.get());
  return true;
}

bool CheckDsa(EVP_PKEY* key, const SignedDigest& digest, CBS signature,
              std::vector<uint8_t>& publicKey, int& result) {
  const bssl::UniquePtr<DSA> dsa(EVP_PKEY_get1_DSA(key));
  if (!dsa) {
    QUILL_LOGE("can not get dsa contex(%s)\n", LibraryError().c_str());
    return Refuse(Reason::kJarKeyUnusable);
  }
  const BIGNUM* publicValue = nullptr;
  DSA_get0_key(dsa.get(), &publicValue, nullptr);
  publicKey = NumberToBytes(publicValue);
  const bssl::UniquePtr<DSA_SIG> parsed(DSA_SIG_parse(&signature));
  if (!parsed) {
    QUILL_LOGE("Error parsing DSA signature\n");
    return Refuse(Reason::kJarBlockMalformed);
  }
  int valid = 0;
  result = DSA_do_check_signature(&valid, digest.value.data(), digest.value.size(), parsed.get(),
                                  dsa.get());
  if (result == 1) result = valid;
  return true;
}

}  // namespace

bool VerifySignatureFile(const SignatureBlock& block, const std::vector<uint8_t>& signatureFile,
                         const std::string& name, std::vector<uint8_t>& publicKey) {
  CBS content;
  CBS_init(&content, block.bytes.data(), block.bytes.size());
  CBS digestAlgorithm;
  CBS signatureAlgorithm;
  CBS signature;
  if (!parse_pkcs7(content, &digestAlgorithm, &signatureAlgorithm, &signature)) return false;
  SignedDigest digest;
  if (!DigestSignatureFile(digestAlgorithm, signatureFile, digest)) return false;

  ERR_clear_error();  // so that a line below shows an error of this block
  bssl::UniquePtr<X509> certificate;
  const bssl::UniquePtr<EVP_PKEY> key = SignerKey(block.bytes, certificate);
  if (!key) return Refuse(Reason::kJarKeyUnusable);
  int result = 0;
  const auto check = block.isDsa ? CheckDsa : CheckRsa;
  if (!check(key.get(), digest, signature, publicKey, result)) return false;
  if (result != 1) {
    QUILL_LOGE("file not verified: %s(ret=%d)\n", name.c_str(), result);
    return Refuse(Reason::kJarSignatureMismatch, name);
  }
  if (IsRecording()) NoteSigner(certificate.get(), key.get());
  return true;
}

ManifestDigest FindManifestDigest(const ManifestMf& signatureFile) {
  constexpr std::string_view kManifestSuffix = "-Manifest";
  ManifestDigest digest;
  for (const ManifestMf::Section& section : signatureFile.getSections()) {
    for (const auto& [key, value] : section) {
      if (!EndsWith(key, "-Digest-Manifest")) continue;
      // Deliberate: of several digests the one whose name sorts last counts.
      digest.value = Base64Decode(value);
      digest.name = key.substr(0, key.size() - kManifestSuffix.size());
    }
    if (!digest.name.empty()) break;
  }
  return digest;
}

}  // namespace Quill
