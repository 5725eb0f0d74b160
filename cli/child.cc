// SPDX-License-Identifier: Apache-2.0

#include "cli/child.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <fstream>
#include <new>
#include <system_error>
#include <utility>

namespace Quill::Tool {
namespace {

// Statuses of a child. A report counts only with kWhole.
enum ChildStatus { kWhole = 0, kFailedWork = 1, kOutOfMemory = 2 };

[[noreturn]] void EndForLackOfMemory() { _exit(kOutOfMemory); }

// Sets a limit, or a lower one that the process already has.
void Limit(decltype(RLIMIT_CPU) resource, rlim_t soft, rlim_t hard) {
  rlimit limit;
  if (getrlimit(resource, &limit) != 0) _exit(kFailedWork);
  limit.rlim_max = std::min(limit.rlim_max, hard);
  limit.rlim_cur = std::min({limit.rlim_cur, limit.rlim_max, soft});
  if (setrlimit(resource, &limit) != 0) _exit(kFailedWork);
}

// Returns the bytes that RLIMIT_DATA counts in this process so far.
rlim_t DataSize() {
  constexpr int kData = 5;  // the field of proc(5)
  std::ifstream file("/proc/self/statm");
  rlim_t pages = 0;
  for (int i = 0; i <= kData; ++i) file >> pages;
  if (!file) throw std::system_error(ENOSYS, std::generic_category(), "/proc/self/statm");
  return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

void WriteAll(int fd, const std::string& bytes) {
  for (size_t written = 0; written < bytes.size();) {
    const ssize_t count = write(fd, bytes.data() + written, bytes.size() - written);
    if (count < 0 && errno != EINTR) _exit(kFailedWork);
    if (count > 0) written += static_cast<size_t>(count);
  }
}

// Runs in the child.
[[noreturn]] void Work(const std::function<std::string()>& work, const ChildLimits& limits,
                       rlim_t dataSize, pid_t parent, int pipe) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(kFailedWork);
  for (const int number : {SIGBUS, SIGXCPU, SIGPIPE}) signal(number, SIG_DFL);
  Limit(RLIMIT_CORE, 0, 0);
  Limit(RLIMIT_CPU, limits.seconds, rlim_t{limits.seconds} + 1);
  const rlim_t most = dataSize + (rlim_t{limits.mebibytes} << 20);
  Limit(RLIMIT_DATA, most, most);
  std::set_new_handler(EndForLackOfMemory);
  try {
    WriteAll(pipe, work());
  } catch (const std::bad_alloc&) {
    _exit(kOutOfMemory);
  } catch (const std::system_error&) {
    _exit(kOutOfMemory);  // no thread could be started
  } catch (const std::exception&) {
    _exit(kFailedWork);
  }
  _exit(kWhole);
}

}  // namespace

Child::Child(const std::function<std::string()>& work, const ChildLimits& limits)
    : limits_(limits),
      deadline_(std::chrono::steady_clock::now() + 5 * std::chrono::seconds(limits.seconds)) {
  static const rlim_t dataSize = DataSize();
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ == 0) Work(work, limits, dataSize, parent, ends[1]);
  const int error = errno;
  close(ends[1]);
  pipe_ = ends[0];
  fcntl(pipe_, F_SETFL, O_NONBLOCK);
  if (pid_ < 0) {
    close(pipe_);
    throw std::system_error(error, std::generic_category(), "fork");
  }
}

Child::~Child() {
  if (pid_ > 0) static_cast<void>(Finish());
  close(pipe_);
}

bool Child::Read() {
  char piece[1 << 16];
  for (;;) {
    const ssize_t count = read(pipe_, piece, sizeof piece);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno == EAGAIN;
    if (count == 0) return false;
    hasReportedTooMuch_ = report_.size() + static_cast<size_t>(count) > kMostReport;
    if (hasReportedTooMuch_) return false;
    report_.append(piece, static_cast<size_t>(count));
  }
}

ChildResult Child::Finish() {
  // The status of a child that has ended, or has begun to, stays as it is.
  const bool isLate = std::chrono::steady_clock::now() >= deadline_;
  kill(pid_, SIGKILL);
  int status = 0;
  rusage usage = {};
  while (wait4(pid_, &status, 0, &usage) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  if (hasReportedTooMuch_) return {ChildEnd::kMemoryLimit, 0, {}};
  if (WIFEXITED(status)) {
    if (WEXITSTATUS(status) == kWhole) return {ChildEnd::kReported, 0, std::move(report_)};
    return {
        WEXITSTATUS(status) == kOutOfMemory ? ChildEnd::kMemoryLimit : ChildEnd::kCrashed, 0, {}};
  }
  const int signal = WTERMSIG(status);
  const bool isSpent = usage.ru_utime.tv_sec + usage.ru_stime.tv_sec >= limits_.seconds;
  if (signal == SIGXCPU || (signal == SIGKILL && (isLate || isSpent))) {
    return {ChildEnd::kTimeLimit, signal, {}};
  }
  return {signal == SIGBUS ? ChildEnd::kFileLost : ChildEnd::kCrashed, signal, {}};
}

}  // namespace Quill::Tool
