// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "fuzz/fuzzing.h"
#include "tests/support/signers.h"

namespace Quill {

enum class SchemeVersion { kV2, kV3 };

// What the signers of fuzzed values sign.
const Regions& SignedRegions();

// The value of a pair with one signer over the regions.
ByteVector FreshValue(SchemeVersion version, Random& random, const Regions& regions);

// A custom mutator for the value of a v2 or v3 pair. Takes the value apart, changes fields, puts it
// together with the right lengths and, for signers with fixed keys, most often with the right
// digests and signatures.
size_t MutateSigners(SchemeVersion version, uint8_t* data, size_t size, size_t maxSize,
                     unsigned seed);

// Changes one bit of the first signer's signed data, chosen by `pick`. False when the value has
// not exactly one signer, with signed data.
bool ChangeSignedData(ByteVector& value, size_t pick);

}  // namespace Quill
