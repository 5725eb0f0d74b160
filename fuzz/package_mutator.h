// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>

#include "fuzz/fuzzing.h"
#include "tests/support/package_builder.h"

namespace Quill {

// A package taken apart at its signing block.
struct PackageParts {
  Regions regions;   // entries, central directory, end record with comment
  ByteVector pairs;  // of the signing block; empty when there is none
};

// Nothing when there is no central directory between entries and end record.
std::optional<PackageParts> TakeApart(const ByteVector& package);
// With the sizes and offsets that fit the parts.
ByteVector PutTogether(PackageParts parts);

// Changes the parts, and most often signs the regions again with fixed keys.
void ChangeParts(PackageParts& parts, Random& random);

}  // namespace Quill
