// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "fuzz/fuzzing.h"

namespace Quill {

// Changes one element of a DER text, or leaves it out, repeats it, or replaces it by another one.
// All lengths around it fit again afterwards. Bytes that are not DER are changed as such.
void MutateDer(ByteVector& der, Random& random);

}  // namespace Quill
