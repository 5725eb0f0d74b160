// SPDX-License-Identifier: Apache-2.0

#include "simulator/process.h"

#include "simulator/environment.h"

namespace tarnsim {

KernelTurn::KernelTurn() {
  // Never destroyed: the program may still call the kernel while it exits.
  static auto* const mutex = new std::mutex;
  static auto* const slot = new std::unique_ptr<SimulatedKernel>(KernelFromEnvironment());
  lock_ = std::unique_lock<std::mutex>(*mutex);
  slot_ = slot;
}

}  // namespace tarnsim
