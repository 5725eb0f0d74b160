// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include <quillon/export.h>

#include "simulator/journal.h"
#include "simulator/kernel_setup.h"

// libtarnsim.so simulates the kernel's integrity subsystem, between a program and the C library:
// the device node or the legacy interface, with rules, labels and errors. A test links the library
// and creates a Simulation; without one, every call goes to the machine. A program that the library
// is preloaded into sets it up by environment variables, which docs/simulator.md lists.

namespace tarnsim {

// Makes the simulated kernel answer the next read of a task's integrity with `nonce`, without
// recording it. Returns false when nothing is simulated. With this a program that must not reach
// the real kernel checks that the simulator is there: it looks the function up in the running
// process, calls it, and reads its integrity.
extern "C" [[nodiscard]] QUILLON_EXPORT bool TarnsimAnswerOnce(uint32_t nonce);

// Simulates the kernel while it lives. Only one may exist at a time; any thread may call its
// kernel.
class QUILLON_EXPORT Simulation {
 public:
  explicit Simulation(const KernelSetup& setup = {});
  Simulation(const Simulation&) = delete;
  Simulation& operator=(const Simulation&) = delete;
  ~Simulation();

  // Returns the requests since the start or the last call, in order.
  std::vector<Request> TakeJournal();
  // Returns the label of the file behind `fd`; empty when it has none.
  [[nodiscard]] Bytes LabelOf(int fd);

 private:
  std::vector<Request> journal_;
};

}  // namespace tarnsim
