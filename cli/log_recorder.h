// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

namespace Quill::Tool {

struct LogLine {
  char priority;     // the log's letter: 'E' error, 'I' info
  std::string text;  // without the final line break
};

// While it lives, records the lines that the library logs on the thread that created it. Only that
// thread uses it, and has at most one at a time. The library's own threads log nothing.
class LogRecorder {
 public:
  // Redirects the log of the whole process: a line of the library goes to the recorder of the
  // thread that logs it, every other line is dropped. Call it before starting threads.
  static void Install();

  LogRecorder();
  LogRecorder(const LogRecorder&) = delete;
  LogRecorder& operator=(const LogRecorder&) = delete;
  ~LogRecorder();

  const std::vector<LogLine>& Lines() const { return lines_; }

 private:
  mutable std::vector<LogLine> lines_;  // the logger writes to it, even if the object is const
};

}  // namespace Quill::Tool
