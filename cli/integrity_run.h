// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <quillon/file.h>

#include "cli/commands.h"

namespace Quill::Tool {

// What the commands that ask the kernel have in common: opening their files, showing the library's
// log, and running under the simulated kernel.

// Opens the files read-only, in order. False, with one diagnostic, at the first that cannot be
// opened or is no regular file.
bool OpenFiles(const std::vector<std::string>& files, std::vector<std::unique_ptr<Fd>>& out);

// Calls `entryPoint` and shows the lines that the library logs meanwhile. Ends with kFailed when
// one of them is an error, and with kUnverified and a diagnostic when the rules left nothing to
// label.
ExitStatus RunLogged(const std::function<void()>& entryPoint);

// Adds --simulate to the parser's options. `interface` receives that of the simulated kernel,
// "device" or "legacy", stays empty without the option, and must outlive the parser.
void DeclareSimulate(CLI::App& parser, std::string& interface);

// Runs `command` here when `interface` is empty. Otherwise runs the program again with
// libtarnsim.so before it, and then shows on standard output what the simulated kernel was asked,
// if anything, and the labels of the files that it signed, beside those files and `package` (none
// when empty) as they are now. Ends as the command did; kFailed, without running it, when the
// simulator cannot be had or does not answer.
ExitStatus RunMaybeSimulated(const std::string& interface, const std::string& package,
                             const std::function<ExitStatus()>& command);

}  // namespace Quill::Tool
