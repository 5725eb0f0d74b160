// SPDX-License-Identifier: Apache-2.0

#include "fuzz/scheme_check.h"
#include "schemes/apk_signing_block_v3.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Quill::CheckScheme<Quill::ApkSigningBlockV3>({data, data + size});
  return 0;
}

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
  return Quill::MutateSigners(Quill::SchemeVersion::kV3, data, size, maxSize, seed);
}
