// SPDX-License-Identifier: Apache-2.0

#include <quillon/tarn.h>

#include "fuzz/fuzzing.h"
#include "simulator/simulator.h"

using Quill::Require;

// Uses the input as the value file and as the label file of the legacy interface.
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tarnsim::KernelSetup setup;
  setup.interface = tarnsim::TarnInterface::kLegacy;
  setup.valueText = std::string(data, data + size);
  setup.labelText = setup.valueText;
  const tarnsim::Simulation simulation(setup);

  uint32_t integrity = 0;
  uint32_t code = TarnTaskReadIntegrity(/*pid=*/0, /*wait=*/0, &integrity);
  Require(code == TARN_OK || code == TARN_FAILED, "a value is read or it is not");

  TarnLabel* label = nullptr;
  code = TarnTaskGetIntegrityLabel(/*pid=*/0, &label);
  Require(code == TARN_OK || code == TARN_FAILED || code == TARN_BAD_ARGUMENT,
          "a label is read or it is not");
  if (label != nullptr) {
    Require(code == TARN_OK, "only a success makes a label");
    Require(label->length <= 256 && label->length <= size, "the label comes from the text");
    const Quill::ByteVector copy(label->data, label->data + label->length);
  }
  TarnLabelFree(label);
  return 0;
}
