// SPDX-License-Identifier: Apache-2.0

#include "tests/support/log_capture.h"

#include <mutex>
#include <string_view>
#include <utility>

#include "util/log.h"

namespace Quill {
namespace {

std::mutex mutex;
std::string kept;

template <typename Record, typename... Text>
void Keep(const Record* record, Text... beside) {
  if (record->tag == nullptr || std::string_view(record->tag) != "Quillon") return;
  const std::lock_guard<std::mutex> lock(mutex);
  kept.append({"??VDIWEF"[record->priority], ' '}).append(LogText(*record, beside...));
  if (kept.back() != '\n') kept += "~\n";
}

}  // namespace

LogCapture::LogCapture() {
  Take();
  kept.reserve(1 << 16);  // a line allocates nothing, for tests that fail allocations
  __android_log_set_logger(Keep);
}

LogCapture::~LogCapture() { __android_log_set_logger(__android_log_stderr_logger); }

std::string LogCapture::Take() {
  const std::lock_guard<std::mutex> lock(mutex);
  return std::exchange(kept, {});
}

}  // namespace Quill
