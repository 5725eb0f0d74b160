// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "cli/commands.h"

namespace Quill::Tool {

// How the second run is started.
struct SecondRun {
  std::string interface;            // of the simulated kernel: "device" or "legacy"
  std::vector<std::string> faults;  // as in TARNSIM_FAIL, which may have more
  std::string journalPath;
  int journal;  // descriptors that it inherits
  int report;
};

// Runs the program a second time, with libtarnsim.so preloaded. The second run calls the kernel
// only after SimulatorAnswers has returned true.

// Starts the second run and waits for its end. If this process is killed meanwhile, so is the
// second run. Returns the status of the second run. Returns kFailed, with a diagnostic, when it
// could not be started, was ended by a signal, or returned a status that this program does not
// have.
[[nodiscard]] ExitStatus RunAgain(const SecondRun& second);

// Returns true in the second run: when the environment variable that marks it is set.
[[nodiscard]] bool IsSecondRun();

// Sends bytes from the second run to the first. Returns false, with a diagnostic, on failure.
[[nodiscard]] bool SendReport(const std::string& bytes);

// Returns true when libtarnsim.so comes first for every function by which the library reaches the
// kernel and libhx.so, and answers a query of the library. The real kernel is not called, and the
// journal does not record the query.
[[nodiscard]] bool SimulatorAnswers();

}  // namespace Quill::Tool
