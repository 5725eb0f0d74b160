// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace Quill::Tool {

// Prints the requests of a journal in words, and then the labels of the files that were signed,
// compared with these files and with `package` as they are now (with no package when it is empty).
// Prints nothing for an empty journal. Returns false when standard output fails.
[[nodiscard]] bool ShowRequests(const std::vector<nlohmann::json>& requests,
                                const std::string& package);

}  // namespace Quill::Tool
