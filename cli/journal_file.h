// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include <quillon/file.h>

namespace Quill::Tool {

// The journal of a simulated run: a file in memory. It disappears with the last process that has it
// open, even if that process is killed.
class JournalFile {
 public:
  // Throws std::system_error when the file cannot be created.
  JournalFile();

  // The descriptor has the close-on-exec flag.
  [[nodiscard]] int Descriptor() const { return file_.GetFd(); }
  // Returns a path of the file, valid in this process and in one that inherits the descriptor.
  [[nodiscard]] std::string Path() const;
  // Returns the requests in it so far. A line that is not JSON gives a discarded value.
  [[nodiscard]] std::vector<nlohmann::json> Read() const;

 private:
  Fd file_;
};

}  // namespace Quill::Tool
