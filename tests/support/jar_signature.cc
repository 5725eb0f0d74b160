// SPDX-License-Identifier: Apache-2.0

#include "tests/support/jar_signature.h"

#include <openssl/asn1.h>
#include <openssl/evp.h>
#include <openssl/mem.h>
#include <openssl/nid.h>
#include <openssl/obj.h>
#include <openssl/x509.h>

#include <quillon/base64.h>

namespace Quill {
namespace {

constexpr uint8_t kOctetString = 0x04, kSequence = 0x30, kSet = 0x31, kContext0 = 0xa0;

// Returns one DER element around others.
ByteVector Der(uint8_t tag, const std::vector<ByteVector>& elements) {
  Wire content;
  for (const ByteVector& element : elements) content.Bytes(element);
  const auto low = static_cast<uint8_t>(content.Size());
  const auto high = static_cast<uint8_t>(content.Size() >> 8);
  const ByteVector length = content.Size() < 0x80    ? ByteVector{low}
                            : content.Size() < 0x100 ? ByteVector{0x81, low}
                                                     : ByteVector{0x82, high, low};
  return Wire().U8(tag).Bytes(length).Bytes(content);
}

ByteVector Oid(int nid) {
  const ASN1_OBJECT* object = OBJ_nid2obj(nid);
  return Der(0x06, {{OBJ_get0_data(object), OBJ_get0_data(object) + OBJ_length(object)}});
}

// Returns the issuer and the serial number of a certificate, as a signer information names it.
ByteVector IssuerAndSerial(const ByteVector& certificate) {
  const uint8_t* cursor = certificate.data();
  const bssl::UniquePtr<X509> parsed(
      d2i_X509(nullptr, &cursor, static_cast<long>(certificate.size())));
  const auto encode = [](auto function, auto* object) {
    uint8_t* bytes = nullptr;
    const int size = function(object, &bytes);
    const bssl::UniquePtr<uint8_t> owner(bytes);
    return ByteVector(bytes, bytes + size);
  };
  return Der(kSequence, {encode(i2d_X509_NAME, X509_get_issuer_name(parsed.get())),
                         encode(i2d_ASN1_INTEGER, X509_get0_serialNumber(parsed.get()))});
}

// Returns a SignedData of PKCS #7 without its content. Unless it is complete, the issuer that
// names the certificate is empty.
ByteVector Pkcs7(const JarOptions& options, const ByteVector& signatureFile) {
  const ByteVector null = {0x05, 0x00}, one = {0x02, 0x01, 0x01};
  const ByteVector issuerAndSerial = options.isComplete ? IssuerAndSerial(options.key->certificate)
                                                        : Der(kSequence, {Der(kSequence, {}), one});
  const ByteVector digest = Der(kSequence, {Oid(EVP_MD_type(options.signatureDigest)), null});
  const ByteVector algorithm = Der(kSequence, {Oid(EVP_PKEY_id(options.key->key.get())), null});
  const ByteVector signature =
      Der(kOctetString, {Sign(*options.key, options.signatureDigest, signatureFile)});
  const ByteVector signer = Der(kSequence, {one, issuerAndSerial, digest, algorithm, signature});

  std::vector<ByteVector> certificates;
  for (const SigningKey* key : options.certificates) certificates.push_back(key->certificate);
  if (certificates.empty()) certificates.push_back(options.key->certificate);
  const ByteVector signedData =
      Der(kSequence, {one, Der(kSet, {digest}), Der(kSequence, {Oid(NID_pkcs7_data)}),
                      Der(kContext0, certificates), Der(kSet, {signer})});
  return Der(kSequence, {Oid(NID_pkcs7_signed), Der(kContext0, {signedData})});
}

}  // namespace

std::vector<ZipFile> SignJar(const std::vector<ZipFile>& entries, const JarOptions& options) {
  const EVP_MD* md = options.digestName == "SHA1" ? EVP_sha1() : EVP_sha256();
  const auto digestLine = [&](const std::string& suffix, const ByteVector& data) {
    return options.digestName + suffix + ": " + Base64Encode(DigestOf(md, data)) + "\r\n";
  };
  const auto section = [&](const ZipFile& entry, const ByteVector& data) {
    return "Name: " + entry.name + "\r\n" + digestLine("-Digest", data) + "\r\n";
  };
  std::string manifest = "Manifest-Version: 1.0\r\n\r\n";
  std::string sections;  // of the signature file
  for (const ZipFile& entry : entries) {
    const std::string listed = section(entry, entry.contents);
    manifest += listed;
    if (options.isComplete) sections += section(entry, Wire().Text(listed));
  }
  if (options.editManifest) options.editManifest(manifest);
  const ByteVector manifestBytes = Wire().Text(manifest);

  std::string signatureFile = "Signature-Version: 1.0\r\n";
  if (!options.apkSigned.empty()) {
    signatureFile += "X-Android-APK-Signed: " + options.apkSigned + "\r\n";
  }
  signatureFile += digestLine("-Digest-Manifest", manifestBytes) + "\r\n" + sections;
  if (options.editSignatureFile) options.editSignatureFile(signatureFile);
  const ByteVector signatureFileBytes = Wire().Text(signatureFile);

  ByteVector block = Pkcs7(options, signatureFileBytes);
  if (options.editBlock) options.editBlock(block);
  const int kind = EVP_PKEY_id(options.key->key.get());
  const char* extension = kind == EVP_PKEY_RSA ? "RSA" : kind == EVP_PKEY_DSA ? "DSA" : "EC";
  return {{"META-INF/MANIFEST.MF", manifestBytes},
          {"META-INF/CERT.SF", signatureFileBytes},
          {std::string("META-INF/CERT.") + extension, block}};
}

}  // namespace Quill
