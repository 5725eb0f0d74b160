// SPDX-License-Identifier: Apache-2.0

#include "cli/new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

namespace Quill::Tool {
namespace {

[[noreturn]] void ThrowError(int error, const std::string& path) {
  throw std::system_error(error, std::generic_category(), "cannot write " + path);
}

}  // namespace

NewFile::NewFile(const std::string& path) : path_(path) {
  struct stat info = {};
  if (lstat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) {
    throw std::runtime_error("cannot write " + path + ": it is no regular file");
  }
  const std::string beside = path.substr(0, path.rfind('/') + 1) + ".quillon-";
  const std::string process = std::to_string(getpid());
  for (int i = 0;; ++i) {
    temporary_ = beside + process + "-" + std::to_string(i);
    const int fd = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0) {
      file_ = std::make_unique<Fd>(fd);
      return;
    }
    // A process of the same number may have left one.
    if (errno != EEXIST || i == 100) ThrowError(errno, path);
  }
}

NewFile::~NewFile() {
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void NewFile::Append(std::string_view text) const {
  while (!text.empty()) {
    const ssize_t count = write(file_->GetFd(), text.data(), text.size());
    if (count < 0 && errno != EINTR) ThrowError(errno, path_);
    if (count > 0) text.remove_prefix(static_cast<size_t>(count));
  }
}

void NewFile::PutInPlace() {
  if (rename(temporary_.c_str(), path_.c_str()) != 0) ThrowError(errno, path_);
  temporary_.clear();
}

}  // namespace Quill::Tool
