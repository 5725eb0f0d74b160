// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <android/log.h>

// Log one line under the tag "Quillon". The arguments are those of printf, and the compiler checks
// them. Write each text in one piece, so that a search for a device's line finds it. liblog cuts a
// line after 1,023 bytes.
#define QUILL_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, "Quillon", __VA_ARGS__)
#define QUILL_LOGI(...) __android_log_print(ANDROID_LOG_INFO, "Quillon", __VA_ARGS__)

namespace Quill {

// Extracts the text from the arguments of a logger callback (__android_log_set_logger): the device
// passes one record, Debian's liblog a record and the text.
template <typename Record>
const char* LogText(const Record& record) {
  return record.message;
}
template <typename Record>
const char* LogText(const Record&, const char* text) {
  return text;
}

}  // namespace Quill
