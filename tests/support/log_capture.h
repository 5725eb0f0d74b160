// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace Quill {

// Keeps the lines with the tag "Quillon" that any thread logs while the object lives, and drops
// those of other tags. One object at a time. Afterwards lines go to standard error.
class LogCapture {
 public:
  LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture();

  // Returns the lines since construction or the last call, in order. "E " or "I " in front of a
  // line is its priority. A line without a final line feed gets "~\n".
  std::string Take();
};

}  // namespace Quill
