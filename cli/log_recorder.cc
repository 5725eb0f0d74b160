// SPDX-License-Identifier: Apache-2.0

#include "cli/log_recorder.h"

#include <string_view>

#include "util/log.h"

namespace Quill::Tool {
namespace {

thread_local std::vector<LogLine>* threadLines = nullptr;

char PriorityLetter(int priority) {
  constexpr std::string_view kLetters = "??VDIWEFS";  // by android_LogPriority
  const auto index = static_cast<size_t>(priority);
  return index < kLetters.size() ? kLetters[index] : '?';
}

template <typename Record, typename... Text>
void Receive(const Record* record, Text... beside) {
  if (threadLines == nullptr || record->tag == nullptr ||
      std::string_view(record->tag) != "Quillon") {
    return;
  }
  std::string_view text(LogText(*record, beside...));
  if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  threadLines->push_back({PriorityLetter(record->priority), std::string(text)});
}

}  // namespace

void LogRecorder::Install() { __android_log_set_logger(Receive); }

LogRecorder::LogRecorder() { threadLines = &lines_; }

LogRecorder::~LogRecorder() { threadLines = nullptr; }

}  // namespace Quill::Tool
