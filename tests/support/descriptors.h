#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace Quill {

// How many descriptors the process has open.
inline size_t OpenDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace Quill
