// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>

namespace Quill {

constexpr size_t kMostGuarded = 1 << 16;

// Guards vectors of `size` bytes, and those that grow from `size` by `behind` bytes: they end at an
// inaccessible page, so that a read past them ends the process even in code without
// instrumentation. A size of 0 stops this. At most kMostGuarded bytes; one thread.
void GuardVectors(size_t size, size_t behind);

}  // namespace Quill
