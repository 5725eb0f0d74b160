// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>

#include "tests/support/wire.h"

// What every target defines, what some define, and what libFuzzer gives them.
extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed);
size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);
}

namespace Quill {

// Ends the process with a message unless `holds`.
void Require(bool holds, const char* rule);

// Decides what a custom mutator does; made from the seed that it is given.
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

// Has libFuzzer change the bytes, which may grow a little.
void MutateBytes(ByteVector& bytes);

// The end of a custom mutator: writes `bytes` over the input if they fit, else leaves the change to
// libFuzzer.
size_t PutMutated(const ByteVector& bytes, uint8_t* data, size_t size, size_t maxSize);

}  // namespace Quill
