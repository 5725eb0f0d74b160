// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vector>

#include "tests/support/signing_key.h"

namespace Quill {

// Key pairs that are the same in every run, so that what one run has signed still verifies in
// another, and mutators can sign it again: several of the curve P-256, then one of RSA.
const std::vector<SigningKey>& FixedKeys();

// The key of that DER SubjectPublicKeyInfo, or null.
const SigningKey* FindFixedKey(const ByteVector& publicKey);

// The key's signature by the v2 and v3 algorithm of that ID, made by the key's own kind where the
// algorithm is another kind's.
ByteVector SignAnyway(const SigningKey& key, uint32_t algorithmId, const ByteVector& data);

}  // namespace Quill
