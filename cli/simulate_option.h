// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <string>

#include "cli/commands.h"

namespace Quill::Tool {

// Adds --simulate to the parser's options. `interface` receives the interface of the simulated
// kernel, "device" or "legacy", and stays empty without the option. It must outlive the parser.
void DeclareSimulate(CLI::App& parser, std::string& interface);

// Runs `command` in this process when `interface` is empty. Otherwise runs the program again with
// libtarnsim.so preloaded, and then prints the requests to the simulated kernel and the labels that
// it made; ShowRequests describes `package`. Returns the command's status, or kFailed, without
// running it, when the simulator is missing or does not answer.
[[nodiscard]] ExitStatus RunMaybeSimulated(const std::string& interface, const std::string& package,
                                           const std::function<ExitStatus()>& command);

}  // namespace Quill::Tool
