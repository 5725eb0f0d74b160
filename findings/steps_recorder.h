// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "findings/steps.h"

namespace Quill {

struct Step {
  StepKind kind;
  std::string file;  // its path
  StepEnd end;
  uint32_t code;
};

// While it lives, keeps the steps on the thread that created it, in order. A thread has at most one
// at a time.
class StepRecorder {
 public:
  StepRecorder();
  StepRecorder(const StepRecorder&) = delete;
  StepRecorder& operator=(const StepRecorder&) = delete;
  ~StepRecorder();

  const std::vector<Step>& Steps() const { return steps_; }

 private:
  std::vector<Step> steps_;
};

}  // namespace Quill
