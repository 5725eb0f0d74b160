// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "integrity/tarn_device.h"
#include "simulator/call.h"

namespace tarnsim {

using Bytes = std::vector<uint8_t>;
using Quill::TarnInterface;

// Answers the `nth` request of its kind since the start (counted from 1; 0 means every one) with
// this result and errno instead of carrying it out. For kOpen only `error` counts.
struct Fault {
  Call call;
  int nth;
  int error;
  int result = -1;
};

// The file that made the kernel reset the task's integrity.
struct ResetFile {
  uint64_t wordA = 0;
  uint32_t wordB = 0;
  std::string path;
  // The length in the reply; by default that of the path with its NUL.
  std::optional<uint16_t> pathLength;
};

// How the simulated kernel starts. Values are not checked, so that labels and lengths can be wrong.
struct KernelSetup {
  TarnInterface interface = TarnInterface::kDevice;
  // The values that successive reads of a task's integrity return; the last one stays. Signing and
  // editing check the value that was read last, or the first one before any read. All tasks have
  // the same value.
  std::vector<uint32_t> integrity = {1};
  std::optional<Bytes> taskLabel;  // a whole TarnLabel, at most 258 bytes
  std::optional<ResetFile> resetFile;
  // Files, and folders with all that is below them, on read-only file systems.
  std::vector<std::string> readOnly;
  std::vector<Fault> faults;
  // The text of the legacy files, instead of the integrity and the label above.
  std::optional<std::string> valueText;
  std::optional<std::string> labelText;
  // Labels that files have at the start, by open descriptor.
  std::vector<std::pair<int, Bytes>> labels;
  // Keep labels with the files, as LabelStore does, instead of in memory.
  bool labelsInFiles = false;
};

}  // namespace tarnsim
