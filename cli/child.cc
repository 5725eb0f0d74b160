// SPDX-License-Identifier: Apache-2.0

#include "cli/child.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

namespace Quill::Tool {
namespace {

// Statuses of a child. A report counts only with kWhole.
enum ChildStatus { kWhole = 0, kFailedWork = 1, kOutOfMemory = 2, kNoThread = 3 };

[[noreturn]] void EndForLackOfMemory() { _exit(kOutOfMemory); }

// Sets a limit, or a lower one that the process already has.
void Limit(decltype(RLIMIT_CPU) resource, rlim_t soft, rlim_t hard) {
  rlimit limit;
  if (getrlimit(resource, &limit) != 0) _exit(kFailedWork);
  limit.rlim_max = std::min(limit.rlim_max, hard);
  limit.rlim_cur = std::min({limit.rlim_cur, limit.rlim_max, soft});
  if (setrlimit(resource, &limit) != 0) _exit(kFailedWork);
}

// Returns the bytes that RLIMIT_DATA counts in this process so far; 0 when that is not known, so
// that a limit above it is only lower.
rlim_t DataSize() {
  char text[128] = "";
  const int fd = open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
  const ssize_t length = fd < 0 ? 0 : read(fd, text, sizeof text - 1);
  if (fd >= 0) close(fd);
  // The sixth field of proc(5).
  const char* field = text;
  for (int i = 0; i < 5 && length > 0 && field != nullptr; ++i) {
    field = std::strchr(field, ' ');
    if (field != nullptr) ++field;
  }
  const rlim_t pages = field == nullptr ? 0 : std::strtoull(field, nullptr, 10);
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
                       pid_t parent, int pipe) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(kFailedWork);
  for (const int number : {SIGBUS, SIGXCPU, SIGPIPE}) signal(number, SIG_DFL);
  Limit(RLIMIT_CORE, 0, 0);
  Limit(RLIMIT_CPU, limits.seconds, rlim_t{limits.seconds} + 1);
  const rlim_t most = DataSize() + (rlim_t{limits.mebibytes} << 20);
  Limit(RLIMIT_DATA, most, most);
  std::set_new_handler(EndForLackOfMemory);
  try {
    WriteAll(pipe, work());
  } catch (const std::bad_alloc&) {
    _exit(kOutOfMemory);
  } catch (const std::system_error&) {
    // For a thread, lack of memory and too many threads are the same error. A stack takes half of
    // this.
    void* room =
        mmap(nullptr, 16 << 20, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    _exit(room == MAP_FAILED ? kOutOfMemory : kNoThread);
  } catch (const std::exception&) {
    _exit(kFailedWork);
  }
  _exit(kWhole);
}

uint64_t Microseconds(const timeval& time) {
  return static_cast<uint64_t>(time.tv_sec) * 1'000'000 + static_cast<uint64_t>(time.tv_usec);
}

// The processor time that a child gets: less than the limit where the process has a lower one.
uint64_t SecondsFor(const ChildLimits& limits) {
  rlimit own;
  if (getrlimit(RLIMIT_CPU, &own) != 0) return limits.seconds;
  return std::min<uint64_t>({limits.seconds, own.rlim_cur, own.rlim_max});
}

}  // namespace

std::unique_ptr<Child> Child::Start(const std::function<std::string()>& work,
                                    const ChildLimits& limits) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return nullptr;
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid == 0) {
    close(ends[0]);
    Work(work, limits, parent, ends[1]);
  }
  close(ends[1]);
  if (pid < 0) {
    close(ends[0]);
    return nullptr;
  }
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  return std::unique_ptr<Child>(new Child(ends[0], pid, limits));
}

Child::Child(int pipe, pid_t pid, const ChildLimits& limits)
    : pipe_(pipe),
      pid_(pid),
      seconds_(SecondsFor(limits)),
      deadline_(std::chrono::steady_clock::now() + 5 * std::chrono::seconds(limits.seconds)) {}

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
    isAtEnd_ = count == 0;
    if (isAtEnd_) return false;
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
  pid_t ended = -1;
  do {
    ended = wait4(pid_, &status, 0, &usage);
  } while (ended < 0 && errno == EINTR);
  if (ended < 0) status = kFailedWork << 8;  // somebody else has waited for it
  pid_ = -1;
  if (!hasReportedTooMuch_) static_cast<void>(Read());
  if (hasReportedTooMuch_) return {ChildEnd::kLongReport, 0, {}};
  if (WIFEXITED(status)) {
    switch (WEXITSTATUS(status)) {
      case kWhole:
        if (isAtEnd_) return {ChildEnd::kReported, 0, std::move(report_)};
        return {ChildEnd::kCrashed, 0, {}};
      case kOutOfMemory:
        return {ChildEnd::kMemoryLimit, 0, {}};
      case kNoThread:
        return {ChildEnd::kNotStarted, 0, {}};
      default:
        return {ChildEnd::kCrashed, 0, {}};
    }
  }
  const int signal = WTERMSIG(status);
  // The kernel counts for the limit by ticks of a clock, which is less exact than this sum. It
  // sends SIGKILL a second after SIGXCPU; anybody else may send it at any time.
  const uint64_t spent = Microseconds(usage.ru_utime) + Microseconds(usage.ru_stime);
  if ((signal == SIGXCPU && spent >= seconds_ * 500'000) ||
      (signal == SIGKILL && spent >= seconds_ * 900'000)) {
    return {ChildEnd::kTimeLimit, signal, {}};
  }
  if (signal == SIGKILL && isLate) return {ChildEnd::kLate, signal, {}};
  return {signal == SIGBUS ? ChildEnd::kFileLost : ChildEnd::kCrashed, signal, {}};
}

}  // namespace Quill::Tool
