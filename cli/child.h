// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Quill::Tool {

struct ChildLimits {
  uint32_t seconds;    // of processor time; five times as long by the clock
  uint32_t mebibytes;  // of private memory, above what the parent has
};

enum class ChildEnd {
  kReported,     // the work is done
  kTimeLimit,    // stopped: it took too much processor time
  kLate,         // stopped: it took too long by the clock
  kMemoryLimit,  // gave up: it could not get the memory that it asked for
  kLongReport,   // stopped: it reported more than kMostReport
  kFileLost,     // died reading a mapped file that had shrunk or could not be read (SIGBUS)
  kCrashed,      // died of another signal, or ended without a whole report
  kNotStarted,   // the system has no process, thread or descriptor left
};

struct ChildResult {
  ChildEnd end;
  int signal;          // 0 when no signal ended it
  std::string report;  // of kReported
};

// A process that does one piece of work and reports bytes through a pipe. Whatever ends it, its
// parent goes on. It dies with its parent.
//
// A parent starts children before it has threads, and is the only one that waits for them.
class Child {
 public:
  // Forks. The child calls `work` and reports what it returns, at most kMostReport bytes. When an
  // allocation fails there, or `work` throws an exception of the standard library for lack of
  // memory or threads, the end is kMemoryLimit. Returns null when there is no pipe or no process
  // left.
  static std::unique_ptr<Child> Start(const std::function<std::string()>& work,
                                      const ChildLimits& limits);
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  // Kills the child if it still runs.
  ~Child();

  static constexpr size_t kMostReport = 64 << 20;

  // A descriptor that can be read when Read has something to do.
  int Pipe() const { return pipe_; }
  std::chrono::steady_clock::time_point Deadline() const { return deadline_; }
  size_t ReportSize() const { return report_.size(); }
  // Reads what the child has written so far, without waiting for more. Returns false when it has
  // closed its end, or has written too much; then call Finish.
  [[nodiscard]] bool Read();
  // Kills a child that has not ended by then, and returns how it ended, with all that it has
  // written; once.
  [[nodiscard]] ChildResult Finish();

 private:
  Child(int pipe, pid_t pid, const ChildLimits& limits);

  int pipe_;
  pid_t pid_;
  const uint64_t seconds_;  // of processor time
  const std::chrono::steady_clock::time_point deadline_;
  std::string report_;
  bool isAtEnd_ = false;  // the child has closed its end of the pipe
  bool hasReportedTooMuch_ = false;
};

}  // namespace Quill::Tool
