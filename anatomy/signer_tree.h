// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "anatomy/field.h"
#include "anatomy/field_reader.h"

namespace Quill::Anatomy {

// Takes the value of a v2 or v3 pair as fields below `pair`: the sequence "signers", and "unused"
// behind it, which no verifier reads. A signer that the verifier cannot parse has a field "unread",
// and so has each field around it: nothing behind it is read.
void TakeSigners(const FieldReader& reader, ByteCursor value, bool isV3, Field& pair);

// Returns true when the verifier can parse all signers of a pair.
[[nodiscard]] bool AreSignersRead(const Field& pair);

}  // namespace Quill::Anatomy
