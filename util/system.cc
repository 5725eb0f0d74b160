// SPDX-License-Identifier: Apache-2.0

#include <sys/statvfs.h>
#include <sys/system_properties.h>

#include <string>

#include <quillon/system.h>

#include "util/log.h"

bool ReadOnlyFS(int fd) {
  struct statvfs info;
  return fstatvfs(fd, &info) == 0 && (info.f_flag & ST_RDONLY) != 0;
}

bool GetVersionSDK(int& out) {
  char value[PROP_VALUE_MAX];
  if (__system_property_get("ro.build.version.sdk", value) < 1) {
    QUILL_LOGE("Can't read property of the current version SDK");
    return false;
  }
  out = std::stoi(value);
  return true;
}
