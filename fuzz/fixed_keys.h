// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vector>

#include "tests/support/signing_key.h"

namespace Quill {

// Returns key pairs that are the same in every run: several of the curve P-256, then one of RSA. So
// an input that one run has signed verifies in another, and mutators can sign it again.
const std::vector<SigningKey>& FixedKeys();

// Finds the key with this DER SubjectPublicKeyInfo. Returns null for any other.
const SigningKey* FindFixedKey(const ByteVector& publicKey);

// Signs with the v2 and v3 algorithm of this ID. If the key is of another kind, signs with the
// key's own kind of algorithm and the same digest.
ByteVector SignAnyway(const SigningKey& key, uint32_t algorithmId, const ByteVector& data);

}  // namespace Quill
