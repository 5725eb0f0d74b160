// SPDX-License-Identifier: Apache-2.0

#include "cli/child_queue.h"

#include <poll.h>

#include <algorithm>
#include <system_error>
#include <utility>
#include <vector>

namespace Quill::Tool {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

ChildQueue::ChildQueue(size_t count, size_t most, const ChildLimits& limits,
                       std::function<std::string(size_t)> work)
    : count_(count), most_(most), limits_(limits), work_(std::move(work)) {}

bool ChildQueue::WaitFor(size_t index, milliseconds time) {
  const auto end = steady_clock::now() + time;
  while (results_.count(index) == 0) {
    StartChildren();
    const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now());
    if (left <= milliseconds(0)) return false;
    Listen(left);
  }
  return true;
}

ChildResult ChildQueue::Take(size_t index) {
  const auto found = results_.find(index);
  ChildResult result = std::move(found->second);
  results_.erase(found);
  resultSize_ -= result.report.size();
  taken_ = index + 1;
  return result;
}

void ChildQueue::StartChildren() {
  // A piece that takes long holds the others' results back. So only so many wait for it.
  constexpr size_t kMostAhead = 1000;
  constexpr size_t kMostResults = 256 << 20;
  while (again_.empty() && next_ < count_ && running_.size() < most_ &&
         next_ < taken_ + kMostAhead && (resultSize_ < kMostResults || running_.empty())) {
    if (!Start(next_)) return;
    ++next_;
  }
  if (!again_.empty() && running_.empty()) static_cast<void>(Start(*again_.begin()));  // alone
}

// Returns false when no process can be started, and others may end that hinder it.
bool ChildQueue::Start(size_t index) {
  try {
    running_[index] = std::make_unique<Child>([this, index] { return work_(index); }, limits_);
    return true;
  } catch (const std::system_error&) {
    running_.erase(index);
    if (!running_.empty()) return false;
    Deliver(index, {ChildEnd::kNotStarted, 0, {}});
    return true;
  }
}

void ChildQueue::Listen(milliseconds time) {
  std::vector<pollfd> pipes;
  std::vector<size_t> indexes;
  auto wake = steady_clock::now() + time;
  for (const auto& [index, child] : running_) {
    pipes.push_back({child->Pipe(), POLLIN, 0});
    indexes.push_back(index);
    wake = std::min(wake, child->Deadline());
  }
  const auto left = std::chrono::ceil<milliseconds>(wake - steady_clock::now());
  poll(pipes.data(), pipes.size(), std::max(0, static_cast<int>(left.count())));
  for (size_t i = 0; i < pipes.size(); ++i) {
    Child& child = *running_[indexes[i]];
    const bool isLate = steady_clock::now() >= child.Deadline();
    if (isLate || (pipes[i].revents != 0 && !child.Read())) End(indexes[i]);
  }
}

void ChildQueue::End(size_t index) {
  const auto found = running_.find(index);
  ChildResult result = found->second->Finish();
  running_.erase(found);
  const bool diedOfSignal = result.end == ChildEnd::kCrashed && result.signal != 0;
  if (diedOfSignal && again_.insert(index).second) return;
  Deliver(index, std::move(result));
}

void ChildQueue::Deliver(size_t index, ChildResult result) {
  again_.erase(index);
  resultSize_ += result.report.size();
  results_.emplace(index, std::move(result));
  ++doneCount_;
}

}  // namespace Quill::Tool
