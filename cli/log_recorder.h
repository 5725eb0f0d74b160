// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

namespace Quill::Tool {

struct LogLine {
  char priority;     // the log's letter: 'E' error, 'I' info
  std::string text;  // without the final line break
};

// Records the lines that the library logs on the calling thread, as long as it lives. A thread has
// at most one, used by that thread alone. The library logs nothing from threads of its own.
class LogRecorder {
 public:
  // Takes over the log of the whole process: lines of the library go to the recorder of the thread
  // that logs them, if it has one, and all others nowhere. To be called before threads are started.
  static void Install();

  LogRecorder();
  LogRecorder(const LogRecorder&) = delete;
  LogRecorder& operator=(const LogRecorder&) = delete;
  ~LogRecorder();

  const std::vector<LogLine>& Lines() const { return lines_; }

 private:
  std::vector<LogLine> lines_;
};

}  // namespace Quill::Tool
