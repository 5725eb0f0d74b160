// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include <quillon/file.h>

namespace Quill::Tool {

// The journal of a simulated run: a file in memory, which goes with the last process that has it
// open, however that ends.
class JournalFile {
 public:
  // Throws std::system_error when it cannot be made.
  JournalFile();

  // Closed by exec unless the caller sees to it.
  int Descriptor() const { return file_.GetFd(); }
  // Names the file in this process, and in one that inherits the descriptor.
  std::string Path() const;
  // The requests in it so far; a line that is no JSON is a discarded value.
  std::vector<nlohmann::json> Read() const;

 private:
  Fd file_;
};

}  // namespace Quill::Tool
