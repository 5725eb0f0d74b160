// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>

#include "simulator/process.h"

namespace tarnsim {

// Creates the kernel that the environment variables describe, with a journal in the file that
// TARNSIM_JOURNAL names. Returns null when TARNSIM_INTERFACE is not set. A variable with an invalid
// value ends the process with a message.
[[nodiscard]] std::unique_ptr<SimulatedKernel> KernelFromEnvironment();

}  // namespace tarnsim
