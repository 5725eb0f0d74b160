// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <string>
#include <vector>

#include <quillon/file.h>

namespace Quill::Tool {

// Opens the files read-only, in order. At the first one that cannot be opened or is not a regular
// file, returns its name and the reason, otherwise an empty text.
[[nodiscard]] std::string OpenFiles(const std::vector<std::string>& files,
                                    std::vector<std::unique_ptr<Fd>>& out);

}  // namespace Quill::Tool
