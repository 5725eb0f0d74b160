// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace Quill {

// std::make_unique that answers null when the allocation itself fails, instead of throwing.
template <typename T, typename... Args>
std::unique_ptr<T> MakeUniqueNoThrow(Args&&... args) {
  return std::unique_ptr<T>(new (std::nothrow) T(std::forward<Args>(args)...));
}

// Throws std::bad_alloc unless there are so many bytes to be had, for a library that answers lack
// of memory like bad data.
inline void RequireMemory(size_t size) { ::operator delete(::operator new(size)); }

}  // namespace Quill
