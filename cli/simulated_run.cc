// SPDX-License-Identifier: Apache-2.0

#include "cli/simulated_run.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <system_error>
#include <vector>

#include <quillon/tarn.h>

#include "cli/output.h"
#include "cli/regular_file.h"
#include "integrity/libhx.h"

namespace Quill::Tool {
namespace {

// This variable marks the second run of the program. It is the number of the descriptor for its
// report.
constexpr char kSecondRun[] = "QUILLON_SIMULATED_RUN";

// Returns the path of libtarnsim.so, which is installed in the folder of libhx.so.
std::string SimulatorPath() {
  Dl_info library;
  if (dladdr(reinterpret_cast<void*>(HxNewCertificate), &library) == 0) return "libtarnsim.so";
  return std::filesystem::path(library.dli_fname).parent_path() / "libtarnsim.so";
}

// Returns the arguments that this process was started with.
std::vector<std::string> OwnArguments() {
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  std::vector<std::string> arguments;
  for (std::string argument; std::getline(file, argument, '\0');) arguments.push_back(argument);
  return arguments;
}

bool SetVariable(const char* name, const std::string& value) {
  return setenv(name, value.c_str(), /*overwrite=*/1) == 0;
}

bool KeepOverExec(int fd) { return fcntl(fd, F_SETFD, 0) == 0; }

// Turns this process into the second run. Returns only on failure, with errno set.
void BecomeSecondRun(const SecondRun& second, int simulator) {
  // LD_PRELOAD splits a path at blanks and colons, so name the library by its descriptor.
  std::string preload = "/proc/self/fd/" + std::to_string(simulator);
  if (const char* others = getenv("LD_PRELOAD")) preload += ':' + std::string(others);
  std::string faults = fmt::format("{}", fmt::join(second.faults, ","));
  if (const char* more = getenv("TARNSIM_FAIL"); more != nullptr && !faults.empty()) {
    faults += ',' + std::string(more);
  }
  if (!KeepOverExec(simulator) || !KeepOverExec(second.journal) || !KeepOverExec(second.report) ||
      !SetVariable(kSecondRun, std::to_string(second.report)) ||
      !SetVariable("TARNSIM_INTERFACE", second.interface) ||
      !SetVariable("TARNSIM_JOURNAL", second.journalPath) || !SetVariable("LD_PRELOAD", preload) ||
      (!faults.empty() && !SetVariable("TARNSIM_FAIL", faults))) {
    return;
  }
  std::vector<std::string> arguments = OwnArguments();
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  execv("/proc/self/exe", pointers.data());
}

// Returns true when the child exited with one of this program's statuses.
bool EndedWell(int status) {
  if (WIFSIGNALED(status)) {
    PrintDiagnostic(fmt::format("the simulated run ended by signal {} ({})", WTERMSIG(status),
                                strsignal(WTERMSIG(status))));
    return false;
  }
  if (WEXITSTATUS(status) <= kUnverified) return true;
  PrintDiagnostic(fmt::format("the simulated run ended with status {}", WEXITSTATUS(status)));
  return false;
}

ExitStatus Fail(const std::string& action, int error) {
  PrintDiagnostic("cannot " + action + ": " + std::generic_category().message(error));
  return kFailed;
}

}  // namespace

ExitStatus RunAgain(const SecondRun& second) {
  const std::string path = SimulatorPath();
  const RegularFile simulator = OpenRegularFile(path);
  if (!simulator.fd) {
    PrintDiagnostic("cannot simulate: " + FileText(path) + ": " + simulator.obstacle);
    return kFailed;
  }

  // With an inherited SIG_IGN the child would be reaped at once, and waitpid would fail.
  std::signal(SIGCHLD, SIG_DFL);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) {
    // Kill the second run when the first one ends. The first one may have ended already.
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == parent) {
      BecomeSecondRun(second, simulator.fd->GetFd());
    }
    _exit(Fail("run this program again", errno));
  }
  if (child < 0) return Fail("run this program again", errno);
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return Fail("wait for the simulated run", errno);
  }
  return EndedWell(status) ? static_cast<ExitStatus>(WEXITSTATUS(status)) : kFailed;
}

bool IsSecondRun() { return getenv(kSecondRun) != nullptr; }

bool SendReport(const std::string& bytes) {
  const char* number = getenv(kSecondRun);
  const int fd = number == nullptr ? -1 : static_cast<int>(std::strtol(number, nullptr, 10));
  size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t size = write(fd, bytes.data() + sent, bytes.size() - sent);
    if (size < 0) {
      PrintDiagnostic("cannot report: " + std::generic_category().message(errno));
      return false;
    }
    sent += static_cast<size_t>(size);
  }
  return true;
}

bool SimulatorAnswers() {
  using AnswerOnce = bool (*)(uint32_t nonce);
  const auto answerOnce = reinterpret_cast<AnswerOnce>(dlsym(RTLD_NEXT, "TarnsimAnswerOnce"));
  Dl_info simulator;
  if (answerOnce == nullptr || dladdr(reinterpret_cast<void*>(answerOnce), &simulator) == 0) {
    return false;
  }
  // RTLD_NEXT finds the first library after the program. The program does not define these names,
  // except that a sanitizer wraps some of them and calls that library.
  constexpr const char* kNames[] = {
      "fcntl",    "fcntl64",    "fopen",        "fopen64",  "fstatvfs",   "fstatvfs64",
      "ioctl",    "open",       "open64",       "__open_2", "__open64_2", "openat",
      "openat64", "__openat_2", "__openat64_2", "statvfs",  "statvfs64",  "HxNewCertificate"};
  const bool isFirst = std::all_of(std::begin(kNames), std::end(kNames), [&](const char* name) {
    Dl_info owner;
    return dladdr(dlsym(RTLD_NEXT, name), &owner) != 0 && owner.dli_fbase == simulator.dli_fbase;
  });
  if (!isFirst) return false;

  const uint32_t nonce = std::random_device()();
  uint32_t answer = ~nonce;
  return answerOnce(nonce) && TarnTaskReadIntegrity(/*pid=*/0, /*wait=*/0, &answer) == TARN_OK &&
         answer == nonce;
}

}  // namespace Quill::Tool
