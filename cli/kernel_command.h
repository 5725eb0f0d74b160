// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/kernel_report.h"

namespace Quill::Tool {

// The options that all commands with the kernel have.
struct KernelOptions {
  std::string simulate;             // "device" or "legacy"; empty: the real kernel
  std::vector<std::string> faults;  // REQUEST:N:ERRNO
  std::string journal;              // a file; empty: none
  bool json = false;
};

void DeclareKernelOptions(CLI::App& parser, KernelOptions& options);

// Runs `work` of the command with this name and prints what it reports; a report that is an
// obstacle goes to standard error. Without a kernel that has the subsystem, `work` is not called.
//
// With a simulated kernel, the program runs a second time, calls `work` there, and ends; then the
// first run prints the requests to the kernel and the labels of the files that were signed,
// compared with these files and with `package` (with no package when it is empty).
[[nodiscard]] ExitStatus RunWithKernel(const std::string& command, const KernelOptions& options,
                                       const std::string& package,
                                       const std::function<KernelReport()>& work);

}  // namespace Quill::Tool
