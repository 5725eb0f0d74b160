// SPDX-License-Identifier: Apache-2.0

#include "cli/report_queue.h"

#include <algorithm>
#include <system_error>

namespace Quill::Tool {

ReportQueue::ReportQueue(const std::vector<std::string>& files, size_t workerCount,
                         bool ignoreHalyxFilter) {
  for (const std::string& file : files) {
    tasks_.emplace_back(
        [&file, ignoreHalyxFilter] { return VerifyPackage(file, ignoreHalyxFilter); });
    reports_.push_back(tasks_.back().get_future());
  }
  workerCount = std::min(workerCount, files.size());
  workers_.reserve(workerCount);
  try {
    while (workers_.size() < workerCount) workers_.emplace_back([this] { Work(); });
  } catch (const std::system_error&) {
    if (workers_.empty()) Work();
  }
}

ReportQueue::~ReportQueue() {
  nextTask_ = tasks_.size();
  for (std::thread& worker : workers_) worker.join();
}

void ReportQueue::Work() {
  for (size_t index = nextTask_++; index < tasks_.size(); index = nextTask_++) {
    tasks_[index]();
    ++doneCount_;
  }
}

bool ReportQueue::WaitFor(size_t index, std::chrono::milliseconds time) const {
  return reports_[index].wait_for(time) == std::future_status::ready;
}

PackageReport ReportQueue::Take(size_t index) { return reports_[index].get(); }

}  // namespace Quill::Tool
