// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <utility>

#include "simulator/label_store.h"
#include "simulator/tarn_kernel.h"

namespace tarnsim {

using FileId = std::pair<dev_t, ino_t>;

// The machine that this process runs on, as its kernel sees it.
class LocalMachine : public Machine {
 public:
  // `labelsInFiles`: see KernelSetup.
  explicit LocalMachine(bool labelsInFiles) {
    if (labelsInFiles) store_.emplace();
  }

  bool CopyIn(uint64_t address, void* out, size_t size) override;
  bool CopyOut(uint64_t address, const void* data, size_t size) override;
  bool HasTask(int pid) override;
  std::string PathOf(int fd) override;
  int Digest(int fd, uint32_t algorithm, Bytes& out) override;
  int LoadLabel(int fd, Bytes& out) override;
  int StoreLabel(int fd, const Bytes& label) override;
  int RemoveLabel(int fd) override;

 private:
  std::optional<LabelStore> store_;  // none: labels are in memory
  std::map<FileId, Bytes> labels_;
};

}  // namespace tarnsim
