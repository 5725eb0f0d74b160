// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>

namespace Quill {

constexpr size_t kMostGuarded = 1 << 16;

// From now on, vectors of `size` bytes, and those that grew from there by `behind` bytes, end where
// a page starts that cannot be touched, so that code which is not instrumented cannot read past
// them. With a size of 0 there are none any more. At most kMostGuarded bytes; one thread.
void GuardVectors(size_t size, size_t behind);

}  // namespace Quill
