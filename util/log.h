// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <android/log.h>

// Log lines of the library, one per call, under the tag "Quillon". Arguments are those of printf
// and are checked by the compiler. Texts stay whole at the call site, so that a line from a device
// can be found by search; liblog cuts a line after 1,023 bytes.
#define QUILL_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, "Quillon", __VA_ARGS__)
#define QUILL_LOGI(...) __android_log_print(ANDROID_LOG_INFO, "Quillon", __VA_ARGS__)

namespace Quill {

// The text of a line that a function given to __android_log_set_logger receives, from all that it
// is called with: the record that holds the text, or, by the liblog of a workstation, record and
// text.
template <typename Record>
const char* LogText(const Record& record) {
  return record.message;
}
template <typename Record>
const char* LogText(const Record&, const char* text) {
  return text;
}

}  // namespace Quill
