// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "schemes/signer_items.h"
#include "util/byte_cursor.h"

// The fields that v2 and v3 signers have in common, in the order in which a parser takes them. Each
// function logs one error line for the field that failed.

namespace Quill {

// Calls `parseSigner` for every signer of a pair's value, with the bytes of the signer that the
// value holds. Fails when `parseSigner` returns false, which logs nothing here, or when a signer
// ends past its sequence. `parseSigner` must reject a signer that is not whole.
[[nodiscard]] bool ParseSigners(
    ByteCursor value, const std::function<bool(ByteCursor signer, bool isWhole)>& parseSigner);

// Takes the signed data at the start of a signer, or as much of it as the signer holds.
[[nodiscard]] std::vector<uint8_t> TakeSignedData(ByteCursor& signer);

// Takes the first two fields of signed data.
[[nodiscard]] bool TakeDigestsAndCertificates(ByteCursor& signedData, std::vector<Digest>& digests,
                                              std::vector<std::vector<uint8_t>>& certificates);
// Takes the next field of signed data. Bytes after it are allowed.
[[nodiscard]] bool TakeAttributes(ByteCursor& signedData, std::vector<Attribute>& attributes);

// Takes the last two fields of a signer. The key must end where the signer ends, so the key of a
// signer that is not whole is rejected.
[[nodiscard]] bool TakeSignaturesAndPublicKey(ByteCursor& signer, bool isWhole,
                                              std::vector<Signature>& signatures,
                                              std::vector<uint8_t>& publicKey);

}  // namespace Quill
