// SPDX-License-Identifier: Apache-2.0

#include "cli/journal_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <sstream>
#include <system_error>

namespace Quill::Tool {

JournalFile::JournalFile() : file_(memfd_create("quillon-journal", MFD_CLOEXEC)) {
  if (file_.GetFd() >= 0) return;
  throw std::system_error(errno, std::generic_category(), "cannot make a journal");
}

JournalFile::JournalFile(const std::string& path)
    : file_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666)) {
  struct stat info = {};
  if (file_.GetFd() < 0 || fstat(file_.GetFd(), &info) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot open the journal " + path);
  }
  if (!S_ISREG(info.st_mode)) {
    throw std::system_error(EINVAL, std::generic_category(),
                            "the journal must be a regular file, " + path + " is none");
  }
  start_ = info.st_size;
}

std::string JournalFile::Path() const { return "/proc/self/fd/" + std::to_string(file_.GetFd()); }

std::string JournalFile::ReadText() const {
  std::string text;
  char block[1 << 14];
  ssize_t size = 0;
  while ((size = pread(file_.GetFd(), block, sizeof(block),
                       start_ + static_cast<off_t>(text.size()))) > 0) {
    text.append(block, static_cast<size_t>(size));
  }
  return text;
}

std::vector<nlohmann::json> JournalFile::Read() const {
  std::vector<nlohmann::json> requests;
  std::istringstream lines(ReadText());
  for (std::string line; std::getline(lines, line);) {
    requests.push_back(nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false));
  }
  return requests;
}

}  // namespace Quill::Tool
