// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace Quill {

// Keeps the lines with the tag "Quillon" that any thread logs while the object lives, instead of
// printing them; other tags are dropped. One object at a time. Afterwards lines go to standard
// error.
class LogCapture {
 public:
  LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture();

  // The lines since construction or the last call, in order, each behind "E " or "I " as its
  // priority. Where a line does not end in a line feed, "~" and one are added.
  std::string Take();
};

}  // namespace Quill
