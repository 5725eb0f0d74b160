#include "cli/log_recorder.h"

#include <android/log.h>

#include <string_view>

namespace Quill::Tool {
namespace {

thread_local std::vector<LogLine>* threadLines = nullptr;

char PriorityLetter(int priority) {
  constexpr std::string_view kLetters = "??VDIWEFS";  // by android_LogPriority
  const auto index = static_cast<size_t>(priority);
  return index < kLetters.size() ? kLetters[index] : '?';
}

void Receive(const __android_logger_data* data, const char* message) {
  if (threadLines == nullptr || data->tag == nullptr || std::string_view(data->tag) != "Quillon") {
    return;
  }
  std::string_view text(message);
  if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  threadLines->push_back({PriorityLetter(data->priority), std::string(text)});
}

}  // namespace

void LogRecorder::Install() { __android_log_set_logger(Receive); }

LogRecorder::LogRecorder() { threadLines = &lines_; }

LogRecorder::~LogRecorder() { threadLines = nullptr; }

}  // namespace Quill::Tool
