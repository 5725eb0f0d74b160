// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "cli/commands.h"

namespace Quill::Tool {

class JournalFile;

// Running the program a second time, with libtarnsim.so before it. A second run asks the kernel
// nothing until it has seen the simulator answer.

// Runs the program again, under a simulated kernel with that interface ("device" or "legacy") and
// that journal, and waits for its end, which is also that of a program that dies meanwhile. Returns
// the second run's status; kFailed, with a diagnostic, when there was none or it ended otherwise
// than by a status of this program.
ExitStatus RunAgain(const std::string& interface, const JournalFile& journal);

// True in a second run, and wherever the variable that marks one is set.
bool IsSecondRun();

// True when libtarnsim.so stands before all that the library calls of the kernel and of libhx.so,
// and answers the library. Only the simulator is asked, and its journal does not show it.
bool SimulatorAnswers();

}  // namespace Quill::Tool
