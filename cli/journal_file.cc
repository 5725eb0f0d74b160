// SPDX-License-Identifier: Apache-2.0

#include "cli/journal_file.h"

#include <sys/mman.h>

#include <cerrno>
#include <fstream>
#include <nlohmann/json.hpp>
#include <system_error>

namespace Quill::Tool {

JournalFile::JournalFile() : file_(memfd_create("quillon-journal", MFD_CLOEXEC)) {
  if (file_.GetFd() >= 0) return;
  throw std::system_error(errno, std::generic_category(), "cannot make a journal");
}

std::string JournalFile::Path() const { return "/proc/self/fd/" + std::to_string(file_.GetFd()); }

std::vector<nlohmann::json> JournalFile::Read() const {
  std::vector<nlohmann::json> requests;
  std::ifstream file(Path());
  for (std::string line; std::getline(file, line);) {
    requests.push_back(nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false));
  }
  return requests;
}

}  // namespace Quill::Tool
