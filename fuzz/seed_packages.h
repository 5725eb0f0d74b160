// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vector>

#include "tests/support/wire.h"

namespace Quill {

// Returns good packages for mutators to start from: with each scheme and each kind of key, with
// several signers, with a lineage, and one without a signature.
std::vector<ByteVector> SeedPackages();

}  // namespace Quill
