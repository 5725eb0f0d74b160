// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "simulator/local_machine.h"
#include "simulator/tarn_kernel.h"

namespace tarnsim {

// A simulated kernel on this machine.
struct SimulatedKernel {
  SimulatedKernel(KernelSetup setup, TarnKernel::Journal journal)
      : machine(setup.labelsInFiles), rules(std::move(setup), machine, std::move(journal)) {}

  LocalMachine machine;
  TarnKernel rules;
};

// Gives one thread at a time access to the process's simulated kernel. Holds a lock while it lives.
class KernelTurn {
 public:
  // The first one creates the kernel that the environment asks for, if any.
  KernelTurn();

  // Returns null when nothing is simulated.
  [[nodiscard]] SimulatedKernel* Kernel() const { return slot_->get(); }
  void Replace(std::unique_ptr<SimulatedKernel> kernel) { *slot_ = std::move(kernel); }

 private:
  std::unique_lock<std::mutex> lock_;
  std::unique_ptr<SimulatedKernel>* slot_;
};

}  // namespace tarnsim
