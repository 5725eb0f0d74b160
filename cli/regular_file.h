// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>

#include <quillon/file.h>

namespace Quill::Tool {

// A file opened for reading, or the reason why it could not be opened.
struct RegularFile {
  std::unique_ptr<Fd> fd;  // null when there is an obstacle
  struct stat info = {};   // of the open file
  std::string obstacle;    // such as "is a directory"
};

// Opens a regular file. Does not wait for pipes and does not read from devices. Logs nothing.
[[nodiscard]] RegularFile OpenRegularFile(const std::string& path);

}  // namespace Quill::Tool
