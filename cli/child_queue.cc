// SPDX-License-Identifier: Apache-2.0

#include "cli/child_queue.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace Quill::Tool {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

ChildQueue::ChildQueue(size_t most, const ChildLimits& limits, std::function<Work()> next)
    : most_(most), limits_(limits), next_(std::move(next)) {
  signal(SIGCHLD, SIG_DFL);  // with SIG_IGN, the system would throw away how children end
}

ChildQueue::State ChildQueue::WaitFor(milliseconds time) {
  const auto end = steady_clock::now() + time;
  while (results_.count(taken_) == 0) {
    StartChildren();
    if (isEnd_ && taken_ == started_) return State::kEnd;
    const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
    if (left <= milliseconds(0)) return State::kWaiting;
    Listen(left);
  }
  return State::kReady;
}

ChildResult ChildQueue::Take() {
  const auto found = results_.find(taken_++);
  ChildResult result = std::move(found->second);
  results_.erase(found);
  return result;
}

void ChildQueue::StartChildren() {
  // A piece that takes long holds the others' results back. So only so many wait for it.
  constexpr size_t kMostAhead = 1000;
  constexpr size_t kMostResults = 256 << 20;
  while (again_.empty() && !isEnd_ && running_.size() < most_ && started_ < taken_ + kMostAhead &&
         (running_.empty() || ResultSize() < kMostResults)) {
    if (!waiting_) waiting_ = next_();
    isEnd_ = !waiting_;
    if (isEnd_ || !Start(started_, waiting_)) break;
    waiting_ = nullptr;
    ++started_;
  }
  if (again_.empty() || !running_.empty()) return;
  const auto& [index, work] = *again_.begin();  // alone
  static_cast<void>(Start(index, work));
}

size_t ChildQueue::ResultSize() const {
  size_t size = 0;
  for (const auto& [index, result] : results_) size += result.report.size();
  for (const auto& [index, piece] : running_) size += piece.child->ReportSize();
  return size;
}

// Returns false when no process can be started, and others may end that hinder it.
bool ChildQueue::Start(size_t index, const Work& work) {
  const auto workApart = [this, &work] {
    for (const auto& [other, piece] : running_) close(piece.child->Pipe());
    return work();
  };
  if (auto child = Child::Start(workApart, limits_)) {
    running_.emplace(index, Piece{work, std::move(child)});
    return true;
  }
  if (!running_.empty()) return false;
  Deliver(index, {ChildEnd::kNotStarted, 0, {}});
  return true;
}

void ChildQueue::Listen(milliseconds time) {
  std::vector<pollfd> pipes;
  std::vector<size_t> indexes;
  auto wake = steady_clock::now() + time;
  for (const auto& [index, piece] : running_) {
    pipes.push_back({piece.child->Pipe(), POLLIN, 0});
    indexes.push_back(index);
    wake = std::min(wake, piece.child->Deadline());
  }
  const auto left = std::chrono::ceil<milliseconds>(wake - steady_clock::now());
  poll(pipes.data(), pipes.size(), std::max(0, static_cast<int>(left.count())));
  for (size_t i = 0; i < pipes.size(); ++i) {
    Child& child = *running_.at(indexes[i]).child;
    const bool isAtEnd = pipes[i].revents != 0 && !child.Read();
    if (isAtEnd || steady_clock::now() >= child.Deadline()) End(indexes[i]);
  }
}

void ChildQueue::End(size_t index) {
  auto piece = running_.extract(index);
  ChildResult result = piece.mapped().child->Finish();
  const bool isFromOutside = (result.end == ChildEnd::kCrashed && result.signal != 0) ||
                             result.end == ChildEnd::kLate || result.end == ChildEnd::kNotStarted;
  if (isFromOutside && again_.emplace(index, std::move(piece.mapped().work)).second) return;
  Deliver(index, std::move(result));
}

void ChildQueue::Deliver(size_t index, ChildResult result) {
  again_.erase(index);
  results_.emplace(index, std::move(result));
}

}  // namespace Quill::Tool
