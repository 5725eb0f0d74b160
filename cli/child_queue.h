// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "cli/child.h"

namespace Quill::Tool {

// Does many pieces of work, each in a child of its own, several at a time. The caller takes the
// results in their order.
//
// What goes wrong with a child need not be its own fault: somebody may kill or stop it, the system
// may when memory runs out, others may take the processors, processes or threads. So such a piece
// is done once more, while no other child runs; the second result counts.
class ChildQueue {
 public:
  using Work = std::function<std::string()>;

  // At most `most` children run at a time. `next` returns the pieces in their order, and an empty
  // function behind the last one. It is called when a child can be started.
  ChildQueue(size_t most, const ChildLimits& limits, std::function<Work()> next);

  enum class State { kWaiting, kReady, kEnd };
  // Starts and watches children until the result of the next piece is there, or for that time.
  // Returns kEnd when all results have been taken.
  [[nodiscard]] State WaitFor(std::chrono::milliseconds time);
  // Returns the result that WaitFor found.
  [[nodiscard]] ChildResult Take();
  // How many pieces are done, taken or not.
  size_t DoneCount() const { return taken_ + results_.size(); }

 private:
  struct Piece {
    Work work;
    std::unique_ptr<Child> child;
  };

  void StartChildren();
  size_t ResultSize() const;  // bytes of all reports that are there, whole or not
  [[nodiscard]] bool Start(size_t index, const Work& work);
  // Waits until a child has something to say, at most that long, and listens to it.
  void Listen(std::chrono::milliseconds time);
  void End(size_t index);
  void Deliver(size_t index, ChildResult result);

  const size_t most_;
  const ChildLimits limits_;
  const std::function<Work()> next_;
  Work waiting_;        // came from next_, and no process could be started for it yet
  bool isEnd_ = false;  // next_ has no more
  size_t started_ = 0;
  size_t taken_ = 0;
  std::map<size_t, Piece> running_;
  std::map<size_t, Work> again_;  // to be done once more; stays until that is done
  std::map<size_t, ChildResult> results_;
};

}  // namespace Quill::Tool
