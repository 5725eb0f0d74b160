// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "cli/child.h"

namespace Quill::Tool {

// Does many pieces of work, each in a child of its own, several at a time. The caller takes the
// results in their order.
//
// Somebody may kill a child from outside, or the system may when memory runs out. So a piece whose
// child dies of a signal is done once more, while no other child runs; the second result counts.
class ChildQueue {
 public:
  // Piece `index`, from 0 to `count` - 1, is `work(index)`. At most `most` children run at a time.
  ChildQueue(size_t count, size_t most, const ChildLimits& limits,
             std::function<std::string(size_t index)> work);

  // Starts and watches children until the result of piece `index` is there, or for that time.
  // Returns whether it is there. `index` is the first that has not been taken.
  [[nodiscard]] bool WaitFor(size_t index, std::chrono::milliseconds time);
  // Returns the result of a piece that WaitFor found; once.
  [[nodiscard]] ChildResult Take(size_t index);
  // How many pieces are done, taken or not.
  size_t DoneCount() const { return doneCount_; }

 private:
  void StartChildren();
  [[nodiscard]] bool Start(size_t index);
  // Waits until a child has something to say, at most that long, and listens to it.
  void Listen(std::chrono::milliseconds time);
  void End(size_t index);
  void Deliver(size_t index, ChildResult result);

  const size_t count_;
  const size_t most_;
  const ChildLimits limits_;
  const std::function<std::string(size_t)> work_;
  size_t next_ = 0;  // the first piece that was not started
  size_t taken_ = 0;
  size_t doneCount_ = 0;
  std::map<size_t, std::unique_ptr<Child>> running_;
  std::set<size_t> again_;  // to be done once more; stays until that is done
  std::map<size_t, ChildResult> results_;
  size_t resultSize_ = 0;  // bytes of all reports in results_
};

}  // namespace Quill::Tool
