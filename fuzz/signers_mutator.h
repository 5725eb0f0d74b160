// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "fuzz/fuzzing.h"
#include "tests/support/signers.h"

namespace Quill {

enum class SchemeVersion { kV2, kV3 };

// Returns the regions that the signers of fuzzed values sign.
const Regions& SignedRegions();

// Returns the value of a pair with one signer, which signs the regions.
ByteVector FreshValue(SchemeVersion version, Random& random, const Regions& regions);

// Mutates the value of a v2 or v3 pair. Parses the value, changes fields, and writes it again with
// matching lengths. If a signer has a fixed key, its digests and signatures usually match too.
size_t MutateSigners(SchemeVersion version, uint8_t* data, size_t size, size_t maxSize,
                     unsigned seed);

// Changes one bit of the signer's signed data, chosen by `pick`. Returns false unless the value has
// exactly one signer, with signed data.
bool ChangeSignedData(ByteVector& value, size_t pick);

}  // namespace Quill
