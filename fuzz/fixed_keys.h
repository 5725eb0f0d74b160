// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vector>

#include "tests/support/signing_key.h"

namespace Quill {

// Returns the keys that seeds and mutators sign with: several of the curve P-256, then one of RSA.
// A mutator signs an input of an earlier run again, since the keys never change.
const std::vector<SigningKey>& FixedKeys();

// Returns the key of that DER SubjectPublicKeyInfo, or null.
const SigningKey* FindFixedKey(const ByteVector& publicKey);

// Signs `data` by the v2 and v3 algorithm of that ID. Where the algorithm is for keys of another
// kind, only its digest is used.
ByteVector SignAnyway(const SigningKey& key, uint32_t algorithmId, const ByteVector& data);

}  // namespace Quill
