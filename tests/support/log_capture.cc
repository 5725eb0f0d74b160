#include "tests/support/log_capture.h"

#include <mutex>
#include <string_view>

namespace Quill {
namespace {

std::mutex mutex;
std::vector<LogLine> kept;

void Keep(const __android_logger_data* data, const char* text) {
  if (data->tag == nullptr || std::string_view(data->tag) != "Quillon") return;
  const std::lock_guard<std::mutex> lock(mutex);
  kept.push_back({data->priority, text});
}

}  // namespace

LogCapture::LogCapture() {
  Take();
  __android_log_set_logger(Keep);
}

LogCapture::~LogCapture() { __android_log_set_logger(__android_log_stderr_logger); }

std::vector<LogLine> LogCapture::Take() {
  const std::lock_guard<std::mutex> lock(mutex);
  return std::exchange(kept, {});
}

}  // namespace Quill
