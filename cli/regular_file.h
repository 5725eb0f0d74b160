// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>

#include <quillon/file.h>

namespace Quill::Tool {

// A file opened for reading, or why there is none.
struct RegularFile {
  std::unique_ptr<Fd> fd;  // null when there is an obstacle
  struct stat info = {};   // of the open file
  std::string obstacle;    // "is a directory"
};

// Opens a regular file; no pipe is waited for and nothing is read from a device. Logs nothing.
RegularFile OpenRegularFile(const std::string& path);

}  // namespace Quill::Tool
