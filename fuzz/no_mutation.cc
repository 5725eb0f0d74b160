// SPDX-License-Identifier: Apache-2.0

#include "fuzz/fuzzing.h"

// For programs without libFuzzer, in which the mutators must link but never run.
size_t LLVMFuzzerMutate(uint8_t* /*data*/, size_t size, size_t /*maxSize*/) { return size; }
