// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>

#include "tests/support/wire.h"

// Every target defines the first function, and some define the second. libFuzzer defines the third.
extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed);
size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);
}

namespace Quill {

// Ends the process with a message unless `holds`.
void Require(bool holds, const char* rule);

// Random choices of a custom mutator, from the seed that libFuzzer passes to it.
class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  size_t Below(size_t count) { return engine_() % count; }
  bool OneIn(size_t count) { return Below(count) == 0; }
  template <typename Container>
  auto& OneOf(Container& items) {
    return items[Below(std::size(items))];
  }

 private:
  std::minstd_rand engine_;
};

// Changes the bytes by libFuzzer's own mutator. They may grow a little.
void MutateBytes(ByteVector& bytes);

// Ends a custom mutator: writes `bytes` over the input if they fit, else mutates the input by
// libFuzzer's own mutator. Returns the new size.
size_t PutMutated(const ByteVector& bytes, uint8_t* data, size_t size, size_t maxSize);

}  // namespace Quill
