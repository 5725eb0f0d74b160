// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "tests/support/signing_key.h"

namespace Quill {

// Returns the keys that seeds and mutators sign with: several EC keys, then one of RSA. A mutator
// signs an input of an earlier run again, since the keys never change.
const std::vector<SigningKey>& FixedKeys();

// The names of their files. A program may take other keys by changing them first of all.
std::vector<std::string>& FixedKeyNames();

// Returns the key of that DER SubjectPublicKeyInfo, or null.
const SigningKey* FindFixedKey(const ByteVector& publicKey);

// The supported algorithms of the v2 and v3 schemes.
inline constexpr uint32_t kAlgorithmIds[] = {0x0101, 0x0102, 0x0103, 0x0104,
                                             0x0201, 0x0202, 0x0301};

// Signs `data` by the v2 and v3 algorithm of that ID. Where the algorithm is for keys of another
// kind, only its digest is used.
ByteVector SignAnyway(const SigningKey& key, uint32_t algorithmId, const ByteVector& data);

}  // namespace Quill
