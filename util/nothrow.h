#pragma once

#include <memory>
#include <new>
#include <utility>

namespace Quill {

// std::make_unique that answers null when the allocation itself fails, instead of throwing.
template <typename T, typename... Args>
std::unique_ptr<T> MakeUniqueNoThrow(Args&&... args) {
  return std::unique_ptr<T>(new (std::nothrow) T(std::forward<Args>(args)...));
}

}  // namespace Quill
