// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "cli/package_report.h"

namespace Quill::Tool {

// Verifies files side by side: worker threads take them in turn, the caller collects the reports in
// any order. `files` stay as long as the object. Where the system gives no more threads, those that
// could be started do the work; without any it is done before the constructor returns.
class ReportQueue {
 public:
  ReportQueue(const std::vector<std::string>& files, size_t workerCount, bool ignoreHalyxFilter);
  ReportQueue(const ReportQueue&) = delete;
  ReportQueue& operator=(const ReportQueue&) = delete;
  // Waits for the files that have been begun and leaves the others.
  ~ReportQueue();

  // Waits for the report of a file, named by its place in the list; false when it is not there by
  // then.
  bool WaitFor(size_t index, std::chrono::milliseconds time) const;
  // Waits for the report of a file and hands it over; once for each file.
  PackageReport Take(size_t index);
  // How many files have been verified, taken or not.
  size_t DoneCount() const { return doneCount_; }

 private:
  void Work();

  std::vector<std::packaged_task<PackageReport()>> tasks_;
  std::vector<std::future<PackageReport>> reports_;
  std::atomic<size_t> nextTask_ = 0;
  std::atomic<size_t> doneCount_ = 0;
  std::vector<std::thread> workers_;
};

}  // namespace Quill::Tool
