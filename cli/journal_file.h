// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include <quillon/file.h>

namespace Quill::Tool {

// A file that a simulated run writes to: the journal, or its report. In memory it disappears with
// the last process that has it open, even if that process is killed.
class JournalFile {
 public:
  // These throw std::system_error when the file cannot be created.
  JournalFile();  // in memory
  // A regular file, to which lines are appended. It is created if it is missing.
  explicit JournalFile(const std::string& path);

  // The descriptor has the close-on-exec flag.
  [[nodiscard]] int Descriptor() const { return file_.GetFd(); }
  // Returns a path of the file, valid in this process and in one that inherits the descriptor.
  [[nodiscard]] std::string Path() const;
  // Returns what was written to it.
  [[nodiscard]] std::string ReadText() const;
  // Returns the requests in it so far. A line that is not JSON gives a discarded value.
  [[nodiscard]] std::vector<nlohmann::json> Read() const;

 private:
  Fd file_;
  off_t start_ = 0;
};

}  // namespace Quill::Tool
