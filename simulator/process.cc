// SPDX-License-Identifier: Apache-2.0

#include "simulator/process.h"

#include "simulator/environment.h"

namespace tarnsim {
namespace {

// Reads the settings when the library is loaded, before the program changes its folder. An invalid
// one ends a program that would never ask the kernel, too.
__attribute__((constructor)) void ReadSettings() { const KernelTurn turn; }

}  // namespace

KernelTurn::KernelTurn() {
  // Never destroyed: the program may still call the kernel while it exits.
  static auto* const mutex = new std::mutex;
  static auto* const slot = new std::unique_ptr<SimulatedKernel>(KernelFromEnvironment());
  lock_ = std::unique_lock<std::mutex>(*mutex);
  slot_ = slot;
}

}  // namespace tarnsim
