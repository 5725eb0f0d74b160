// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "simulator/kernel_setup.h"

namespace tarnsim {

// Keeps the labels of files for the next program. A label is kept in the extended attribute
// "user.tarn.label" of its file. Where the attribute cannot be written or is too small, the label
// is kept in a folder, in a file that is named after the labelled one's number; then that counts,
// whatever the attribute contains.
//
// Functions that return an int return 0 or an errno.
class LabelStore {
 public:
  explicit LabelStore(std::string folder) : folder_(std::move(folder)) {}
  // Uses the folder that the environment names: TARNSIM_LABELS, else "tarnsim/labels" in the user's
  // folder for state. Empty if it names none; then labels are kept in attributes alone.
  LabelStore();

  const std::string& Folder() const { return folder_; }

  // Loading and removing return ENODATA when the file has no label.
  [[nodiscard]] int Load(int fd, Bytes& out) const;
  [[nodiscard]] int Store(int fd, const Bytes& label) const;
  [[nodiscard]] int Remove(int fd) const;

 private:
  [[nodiscard]] std::string EntryOf(int fd) const;
  [[nodiscard]] int WriteEntry(int fd, const Bytes& label) const;
  void RemoveEntry(int fd) const;

  std::string folder_;
};

}  // namespace tarnsim
