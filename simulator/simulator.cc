// SPDX-License-Identifier: Apache-2.0

#include "simulator/simulator.h"

#include <memory>
#include <utility>

#include "simulator/process.h"

namespace tarnsim {

bool TarnsimAnswerOnce(uint32_t nonce) {
  const KernelTurn turn;
  if (turn.Kernel() == nullptr) return false;
  turn.Kernel()->rules.AnswerOnce(nonce);
  return true;
}

Simulation::Simulation(const KernelSetup& setup) {
  auto kernel = std::make_unique<SimulatedKernel>(
      setup, [this](const Request& request) { journal_.push_back(request); });
  for (const auto& [fd, label] : setup.labels) kernel->machine.StoreLabel(fd, label);
  KernelTurn().Replace(std::move(kernel));
}

Simulation::~Simulation() { KernelTurn().Replace(nullptr); }

std::vector<Request> Simulation::TakeJournal() {
  const KernelTurn turn;
  return std::exchange(journal_, {});
}

Bytes Simulation::LabelOf(int fd) {
  const KernelTurn turn;
  Bytes label;
  return turn.Kernel()->machine.LoadLabel(fd, label) == 0 ? label : Bytes();
}

}  // namespace tarnsim
