// SPDX-License-Identifier: Apache-2.0

#include "jar/pkcs7.h"

#include <cstdint>

#include "findings/refusal.h"
#include "util/log.h"

using Quill::Reason;

bool parse_pkcs7(CBS input, CBS* digestAlgorithm, CBS* signatureAlgorithm, CBS* signature) {
  static constexpr uint8_t kSignedDataOid[] = {0x2a, 0x86, 0x48, 0x86, 0xf7,
                                               0x0d, 0x01, 0x07, 0x02};  // 1.2.840.113549.1.7.2
  constexpr unsigned kExplicit0 = CBS_ASN1_CONTEXT_SPECIFIC | CBS_ASN1_CONSTRUCTED | 0;

  CBS contentInfo;
  CBS contentType;
  if (!CBS_get_asn1(&input, &contentInfo, CBS_ASN1_SEQUENCE) ||
      !CBS_get_asn1(&contentInfo, &contentType, CBS_ASN1_OBJECT)) {
    QUILL_LOGE("PKCS7 parsing: wrong header\n");
    return Quill::Refuse(Reason::kJarBlockMalformed);
  }
  if (!CBS_mem_equal(&contentType, kSignedDataOid, sizeof kSignedDataOid)) {
    QUILL_LOGE("PKCS7 parsing: wrong object identifier\n");
    return Quill::Refuse(Reason::kJarBlockMalformed);
  }

  CBS wrapper;
  CBS signedData;
  CBS skipped;
  uint64_t version;
  if (!CBS_get_asn1(&contentInfo, &wrapper, kExplicit0) ||
      !CBS_get_asn1(&wrapper, &signedData, CBS_ASN1_SEQUENCE) ||
      !CBS_get_asn1_uint64(&signedData, &version) ||
      !CBS_get_asn1(&signedData, &skipped, CBS_ASN1_SET) ||
      !CBS_get_asn1(&signedData, &skipped, CBS_ASN1_SEQUENCE)) {
    QUILL_LOGE("PKCS7 parsing: wrong signed-data content\n");
    return Quill::Refuse(Reason::kJarBlockMalformed);
  }

  CBS signerInfos;
  CBS signerInfo;
  if (!CBS_get_asn1(&signedData, &skipped, kExplicit0) ||
      !CBS_get_any_asn1(&signedData, &signerInfos, nullptr) ||
      !CBS_get_any_asn1(&signerInfos, &signerInfo, nullptr) ||
      !CBS_get_any_asn1(&signerInfo, &skipped, nullptr) ||
      !CBS_get_asn1(&signerInfo, &skipped, CBS_ASN1_SEQUENCE)) {
    QUILL_LOGE("PKCS7 parsing: can't find enveloped data\n");
    return Quill::Refuse(Reason::kJarBlockMalformed);
  }
  const bool hasDigest = CBS_get_asn1_element(&signerInfo, digestAlgorithm, CBS_ASN1_SEQUENCE) == 1;
  const bool hasAttributes = hasDigest && CBS_peek_asn1_tag(&signerInfo, kExplicit0) == 1;
  if (!hasDigest || !CBS_get_asn1(&signerInfo, signatureAlgorithm, CBS_ASN1_SEQUENCE) ||
      !CBS_get_asn1(&signerInfo, signature, CBS_ASN1_OCTETSTRING)) {
    QUILL_LOGE("PKCS7 parsing: can't find algorithm/signature\n");
    return Quill::Refuse(hasAttributes ? Reason::kJarSignedAttributes : Reason::kJarBlockMalformed);
  }
  return true;
}
