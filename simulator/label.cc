// SPDX-License-Identifier: Apache-2.0

#include "simulator/label.h"

namespace tarnsim {

size_t DigestSize(uint32_t algorithm) {
  switch (algorithm) {
    case TARN_SHA1:
      return 20;
    case TARN_SHA256:
      return 32;
    case TARN_SHA512:
      return 64;
    default:
      return 0;
  }
}

bool IsExtended(const Bytes& label) {
  TarnLabel start;
  return ReadFront(label, start) && start.length == 0xFFFF;
}

bool IsWellFormed(const Bytes& label) {
  if (!IsExtended(label)) return true;
  TarnExLabel front;
  if (!ReadFront(label, front)) return false;
  return front.version == 2 && front.reserved[0] == 0 && front.reserved[1] == 0 &&
         DigestSize(front.algorithm) != 0;
}

}  // namespace tarnsim
