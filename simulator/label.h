// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simulator/kernel_setup.h"

// How the simulated kernel reads a label.

namespace tarnsim {

// Copies the start of `bytes` into `record`. Returns false when there are too few bytes.
template <typename Record>
[[nodiscard]] bool ReadFront(const Bytes& bytes, Record& record) {
  if (bytes.size() < sizeof(record)) return false;
  memcpy(&record, bytes.data(), sizeof(record));
  return true;
}

// Returns the size in bytes of a label's digest; 0 for an algorithm that a label cannot have.
[[nodiscard]] size_t DigestSize(uint32_t algorithm);

// Returns true when the label is marked as an extended one; it need not be a whole TarnExLabel.
[[nodiscard]] bool IsExtended(const Bytes& label);

// Returns true when the kernel accepts the label: a plain one, or an extended one with the right
// version, zeros in its reserved bytes, and a known algorithm. The bytes behind the digest do not
// matter: a label does not say how long its digest is, so it ends where its algorithm's does.
[[nodiscard]] bool IsWellFormed(const Bytes& label);

}  // namespace tarnsim
