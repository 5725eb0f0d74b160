// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>

#include "fuzz/fuzzing.h"
#include "tests/support/package_builder.h"

namespace Quill {

// The parts of a package: three regions, and the signing block between the first two.
struct PackageParts {
  Regions regions;   // entries, central directory, end record with comment
  ByteVector pairs;  // of the signing block; empty when there is none
};

// Splits a package. Returns nothing if there is no central directory before the end record.
std::optional<PackageParts> TakeApart(const ByteVector& package);
// Builds a package from the parts, with sizes and offsets that match them.
ByteVector PutTogether(PackageParts parts);

// Changes the parts, often by ChangeArchive, and usually signs the regions again with fixed keys.
void ChangeParts(PackageParts& parts, Random& random);

}  // namespace Quill
