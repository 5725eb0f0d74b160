// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace Quill {

// std::make_unique that returns null when the allocation itself fails, instead of throwing.
template <typename T, typename... Args>
[[nodiscard]] std::unique_ptr<T> MakeUniqueNoThrow(Args&&... args) {
  return std::unique_ptr<T>(new (std::nothrow) T(std::forward<Args>(args)...));
}

// Throws std::bad_alloc when `size` bytes cannot be allocated. For use after a call into a library
// that reports lack of memory and bad data in the same way.
inline void RequireMemory(size_t size) { ::operator delete(::operator new(size)); }

}  // namespace Quill
