// SPDX-License-Identifier: Apache-2.0

#include "fuzz/fuzzing.h"

// For programs without libFuzzer, where the mutators only have to link.
size_t LLVMFuzzerMutate(uint8_t* /*data*/, size_t size, size_t /*maxSize*/) { return size; }
