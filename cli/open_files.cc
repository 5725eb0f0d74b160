// SPDX-License-Identifier: Apache-2.0

#include "cli/open_files.h"

#include <utility>

#include "cli/output.h"
#include "cli/regular_file.h"

namespace Quill::Tool {

std::string OpenFiles(const std::vector<std::string>& files,
                      std::vector<std::unique_ptr<Fd>>& out) {
  for (const std::string& file : files) {
    RegularFile opened = OpenRegularFile(file);
    if (!opened.fd) return FileText(file) + ": " + opened.obstacle;
    out.push_back(std::move(opened.fd));
  }
  return "";
}

}  // namespace Quill::Tool
