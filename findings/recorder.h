// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <set>

#include "findings/finding.h"

namespace Quill {

// While it lives, keeps what the library finds on the thread that created it. A thread has at most
// one at a time.
class FindingRecorder {
 public:
  FindingRecorder();
  FindingRecorder(const FindingRecorder&) = delete;
  FindingRecorder& operator=(const FindingRecorder&) = delete;
  ~FindingRecorder();

  bool Has(Finding finding) const { return findings_.count(finding) != 0; }

 private:
  friend void Record(Finding finding);

  std::set<Finding> findings_;
};

}  // namespace Quill
