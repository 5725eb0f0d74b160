// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "crypto/verifier.h"

namespace Quill {

// One signature algorithm of the v2 and v3 schemes.
struct SignatureAlgorithm {
  uint32_t id;                              // as signers name it
  int digestNid;                            // Hash::CreateHashFromAlgoId
  std::unique_ptr<Verifier> (*verifier)();  // a verifier without a key, null when out of memory
};

// All that are supported, the most preferred first.
const std::array<SignatureAlgorithm, 7>& SignatureAlgorithms();

// The algorithm of that ID, or null.
const SignatureAlgorithm* FindSignatureAlgorithm(uint32_t id);

}  // namespace Quill
