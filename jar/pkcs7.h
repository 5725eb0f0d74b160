// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <openssl/bytestring.h>

// Parses a PKCS #7 SignedData in the one layout that JAR signers write: DER, without CRLs and
// without signed attributes. Only the first signer info is read. The outputs borrow the bytes of
// `input`: the digest algorithm as a whole element, the content of the signature algorithm, and the
// signature. On failure this logs one error line and the outputs are unspecified.
[[nodiscard]] bool parse_pkcs7(CBS input, CBS* digestAlgorithm, CBS* signatureAlgorithm,
                               CBS* signature);
