// SPDX-License-Identifier: Apache-2.0

// Runs a program, discards its output, and prints what it used.
// usage: measure time|memory PROGRAM [ARGUMENT...]
//   time     seconds from start to end
//   memory   peak of private memory in KiB, without mapped files, from up to 5,000 samples a second
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>

namespace {

// Reads the private memory from the page tables, because the kernel's running count is too coarse.
// Returns 0 when the process has ended.
long PrivateKib(pid_t process) {
  std::ifstream maps("/proc/" + std::to_string(process) + "/smaps_rollup");
  for (std::string line; std::getline(maps, line);) {
    if (line.compare(0, 10, "Anonymous:") == 0) return std::stol(line.substr(10));
  }
  return 0;
}

pid_t Start(char** arguments) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  pid_t process = -1;
  const int error = posix_spawnp(&process, arguments[0], &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? process : -1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view what = argc > 2 ? argv[1] : "";
  if (what != "time" && what != "memory") {
    std::fputs("usage: measure time|memory PROGRAM [ARGUMENT...]\n", stderr);
    return 2;
  }
  const auto start = std::chrono::steady_clock::now();
  const pid_t process = Start(argv + 2);
  int status = -1;
  long peak = 0;
  while (process > 0 && waitpid(process, &status, what == "memory" ? WNOHANG : 0) == 0) {
    peak = std::max(peak, PrivateKib(process));
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  if (status != 0) {
    std::fprintf(stderr, "measure: %s failed\n", argv[2]);
    return 1;
  }
  if (what == "memory") {
    std::printf("%ld\n", peak);
  } else {
    std::printf("%.6f\n", taken.count());
  }
  return 0;
}
