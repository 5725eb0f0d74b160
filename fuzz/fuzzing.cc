// SPDX-License-Identifier: Apache-2.0

#include "fuzz/fuzzing.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace Quill {

void Require(bool holds, const char* rule) {
  if (holds) return;
  std::fprintf(stderr, "broken rule: %s\n", rule);
  std::abort();
}

void MutateBytes(ByteVector& bytes) {
  constexpr size_t kGrowth = 64;
  const size_t size = bytes.size();
  bytes.resize(size + kGrowth);
  bytes.resize(LLVMFuzzerMutate(bytes.data(), size, bytes.size()));
}

size_t PutMutated(const ByteVector& bytes, uint8_t* data, size_t size, size_t maxSize) {
  if (bytes.empty() || bytes.size() > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
  std::copy(bytes.begin(), bytes.end(), data);
  return bytes.size();
}

}  // namespace Quill
