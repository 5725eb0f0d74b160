// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <openssl/bytestring.h>

// Reads the one layout of a PKCS #7 SignedData that JAR signers write: DER, no CRLs, no signed
// attributes; only the first signer info is looked at. On success the outputs, which borrow the
// bytes of `input`, are the digest algorithm as a whole element, the content of the signature
// algorithm, and the signature. On failure one error line is logged and the outputs are
// unspecified.
bool parse_pkcs7(CBS input, CBS* digestAlgorithm, CBS* signatureAlgorithm, CBS* signature);
