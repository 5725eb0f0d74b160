// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "crypto/hash.h"
#include "crypto/verifier.h"
#include "schemes/signer_items.h"
#include "signing_block/raw_data.h"
#include "util/file_pages.h"

// The steps of a signer's verification that v2 and v3 share, in the order of their use. Unless a
// comment says otherwise, a step that fails logs one error line.

namespace Quill {

// What is left of a signature that verified: the digest object of its algorithm, and the verifier
// with the signer's key.
struct VerifiedSignature {
  std::unique_ptr<Hash> hash;
  std::unique_ptr<Verifier> verifier;
};

// Verifies the signature with the most preferred algorithm, over `signedData`, with `publicKey`.
[[nodiscard]] bool VerifySignature(const std::vector<Signature>& signatures,
                                   const std::vector<uint8_t>& publicKey,
                                   const std::vector<uint8_t>& signedData, VerifiedSignature& out);

// Returns true when the first certificate carries `publicKey`, a DER SubjectPublicKeyInfo. The
// other certificates are not read. False logs one error line, after the certificate's own.
[[nodiscard]] bool VerifyMainCertificate(const std::vector<std::vector<uint8_t>>& certificates,
                                         const std::vector<uint8_t>& publicKey);

// Returns true when both list the same algorithms in the same order. Does not log.
[[nodiscard]] bool CompareOrder(const std::vector<Signature>& signatures,
                                const std::vector<Digest>& digests);

// Computes the content digest of a package from its digested regions. `hash` is only lent. Those of
// `pages` that have been digested are given back to the kernel.
[[nodiscard]] bool CalcTopDigest(const std::vector<RawData>& chunks, std::unique_ptr<Hash>& hash,
                                 std::vector<uint8_t>& topDigest, const FilePages& pages = {});

// Verifies that the digest with the most preferred algorithm is the package's content digest.
// `hash` is the digest object of the verified signature; `pages` are those for CalcTopDigest. False
// logs one error line, after that of CalcTopDigest.
[[nodiscard]] bool VerifyContent(const std::vector<Signature>& signatures,
                                 const std::vector<Digest>& digests,
                                 const std::vector<RawData>& chunks, std::unique_ptr<Hash>& hash,
                                 const FilePages& pages = {});

}  // namespace Quill
