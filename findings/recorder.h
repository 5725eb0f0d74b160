// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "findings/refusal.h"

namespace Quill {

// A refusal with its own copy of the evidence.
struct Refusal {
  Reason reason;
  uint64_t number;
  std::string name;
  std::vector<uint8_t> expected;
  std::vector<uint8_t> found;
};

// While it lives, keeps the refusals on the thread that created it, in order. A thread has at most
// one at a time.
class RefusalRecorder {
 public:
  RefusalRecorder();
  RefusalRecorder(const RefusalRecorder&) = delete;
  RefusalRecorder& operator=(const RefusalRecorder&) = delete;
  ~RefusalRecorder();

  const std::vector<Refusal>& Refusals() const { return refusals_; }
  bool Has(Reason reason) const;

 private:
  friend bool Refuse(Reason reason, const Evidence& evidence);

  mutable std::vector<Refusal> refusals_;  // Refuse writes to it, even if the object is const
};

}  // namespace Quill
