// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "simulator/local_machine.h"
#include "simulator/tarn_kernel.h"

namespace tarnsim {

struct SimulatedKernel {
  SimulatedKernel(KernelSetup setup, TarnKernel::Journal journal)
      : machine(setup.labelsInFiles), rules(std::move(setup), machine, std::move(journal)) {}

  LocalMachine machine;
  TarnKernel rules;
};

// The turn of one thread with the kernel that this process has at the moment, if any.
class KernelTurn {
 public:
  KernelTurn();

  SimulatedKernel* Kernel() const { return slot_->get(); }
  void Replace(std::unique_ptr<SimulatedKernel> kernel) { *slot_ = std::move(kernel); }

 private:
  std::unique_lock<std::mutex> lock_;
  std::unique_ptr<SimulatedKernel>* slot_;
};

// The kernel that the environment asks for; null when it asks for none. A variable that cannot be
// understood ends the process with a message.
std::unique_ptr<SimulatedKernel> KernelFromEnvironment();

}  // namespace tarnsim
