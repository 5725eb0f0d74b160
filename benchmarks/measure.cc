// SPDX-License-Identifier: Apache-2.0

// Runs programs in turn and discards their output. Prints one line for each: the median of its
// elapsed seconds, the median of its processor seconds, and the peak resident memory in KiB of the
// largest process, mapped files included. Children count that the program waits for.
// usage: measure [--cold FILE] RUNS PROGRAM [ARGUMENT...] [+ PROGRAM [ARGUMENT...]]...
//   --cold FILE   no page of the file is in the page cache when a program starts; fails where the
//                 system does not give them up
// With more than one run, another one, which is not counted, comes first.
// A program's peak is at least that of this one, so this one links nothing.
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace {

struct Program {
  std::vector<char*> arguments;  // ends with a null pointer
  std::vector<double> seconds, processorSeconds;
  long peakKib = 0;
};

void Require(bool done, const std::string& what) {
  if (!done) throw std::system_error(errno, std::generic_category(), what);
}

void Evict(const char* path) {
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  struct stat info;
  Require(file >= 0 && fsync(file) == 0 && fstat(file, &info) == 0, path);
  posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
  const auto size = static_cast<size_t>(info.st_size);
  void* mapping = mmap(nullptr, size, PROT_READ, MAP_SHARED, file, 0);
  Require(mapping != MAP_FAILED, path);
  std::vector<unsigned char> pages(size / static_cast<size_t>(sysconf(_SC_PAGESIZE)) + 1);
  Require(mincore(mapping, size, pages.data()) == 0, path);
  munmap(mapping, size);
  close(file);
  if (std::any_of(pages.begin(), pages.end(), [](unsigned char page) { return page & 1; })) {
    throw std::runtime_error(std::string(path) + " stays in the page cache");
  }
}

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

void Run(Program& program) {
  const char* name = program.arguments[0];
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  const auto start = std::chrono::steady_clock::now();
  pid_t process = -1;
  errno = posix_spawnp(&process, name, &actions, nullptr, program.arguments.data(), environ);
  Require(errno == 0, name);
  int status = -1;
  rusage usage = {};
  Require(wait4(process, &status, 0, &usage) == process, name);
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  posix_spawn_file_actions_destroy(&actions);
  if (status != 0) throw std::runtime_error(std::string(name) + " failed");
  program.seconds.push_back(taken.count());
  program.processorSeconds.push_back(Seconds(usage.ru_utime) + Seconds(usage.ru_stime));
  program.peakKib = std::max(program.peakKib, usage.ru_maxrss);
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

int main(int argc, char** argv) {
  const bool isCold = argc > 2 && std::string(argv[1]) == "--cold";
  char** const arguments = argv + (isCold ? 3 : 1);
  const long runs = *arguments == nullptr ? 0 : std::strtol(*arguments, nullptr, 10);
  std::vector<Program> programs(1);
  for (char** next = arguments + 1; runs > 0 && *next != nullptr; ++next) {
    if (std::string(*next) == "+") {
      programs.emplace_back();
    } else {
      programs.back().arguments.push_back(*next);
    }
  }
  for (Program& program : programs) {
    if (program.arguments.empty()) {
      std::fputs("usage: measure [--cold FILE] RUNS PROGRAM [ARGUMENT...] [+ ...]\n", stderr);
      return 2;
    }
    program.arguments.push_back(nullptr);
  }

  try {
    for (long run = runs == 1 ? 1 : 0; run <= runs; ++run) {
      for (Program& program : programs) {
        if (isCold) Evict(argv[2]);
        Program discarded = {program.arguments, {}, {}};
        Run(run == 0 ? discarded : program);
      }
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "measure: %s\n", error.what());
    return 1;
  }
  for (const Program& program : programs) {
    std::printf("%.6f %.6f %ld\n", Median(program.seconds), Median(program.processorSeconds),
                program.peakKib);
  }
  return 0;
}
