#pragma once

#include <android/log.h>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace Quill {

// A log line of the library: liblog's priority, and the text with its line break if it has one.
struct LogLine {
  int priority;
  std::string text;

  bool operator==(const LogLine& other) const {
    return priority == other.priority && text == other.text;
  }
};

inline std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << line.priority << ": \"" << line.text << '"';
}

inline LogLine Error(std::string text) { return {ANDROID_LOG_ERROR, std::move(text)}; }
inline LogLine Info(std::string text) { return {ANDROID_LOG_INFO, std::move(text)}; }

template <typename... Line>
std::vector<LogLine> Lines(Line... lines) {
  return {std::move(lines)...};
}

// Keeps the lines with the tag "Quillon" that any thread logs while the object lives, instead of
// printing them; other tags are dropped. One object at a time. Afterwards lines go to standard
// error.
class LogCapture {
 public:
  LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture();

  // The lines since construction or the last call, in order.
  std::vector<LogLine> Take();
};

}  // namespace Quill
