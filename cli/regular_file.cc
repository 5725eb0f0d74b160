// SPDX-License-Identifier: Apache-2.0

#include "cli/regular_file.h"

#include <fcntl.h>

#include <cerrno>
#include <system_error>

namespace Quill::Tool {
namespace {

// Checks the result of open. Returns an empty text, and fills `info`, if it is a regular file.
std::string FindObstacle(int fd, struct stat& info) {
  if (fd < 0 || fstat(fd, &info) != 0) return std::generic_category().message(errno);
  if (S_ISDIR(info.st_mode)) return "is a directory";
  return S_ISREG(info.st_mode) ? "" : "not a regular file";
}

}  // namespace

RegularFile OpenRegularFile(const std::string& path) {
  RegularFile file;
  auto fd = std::make_unique<Fd>(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  file.obstacle = FindObstacle(fd->GetFd(), file.info);
  if (file.obstacle.empty()) file.fd = std::move(fd);
  return file;
}

}  // namespace Quill::Tool
