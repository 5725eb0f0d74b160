// SPDX-License-Identifier: Apache-2.0

#include "crypto/number.h"

#include <openssl/bn.h>

namespace Quill {

std::vector<uint8_t> NumberToBytes(const BIGNUM* number) {
  std::vector<uint8_t> bytes(BN_num_bytes(number));
  BN_bn2bin(number, bytes.data());
  return bytes;
}

}  // namespace Quill
