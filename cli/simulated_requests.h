// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace Quill::Tool {

// Returns lines that describe the requests of a journal, and then the labels of the files that were
// signed, compared with these files and with `package` as they are now (with no package when it is
// empty). Returns none for an empty journal.
[[nodiscard]] std::vector<std::string> DescribeRequests(const std::vector<nlohmann::json>& requests,
                                                        const std::string& package);

// Adds the same as "requests" and "labels".
void AddRequests(const std::vector<nlohmann::json>& requests, const std::string& package,
                 nlohmann::ordered_json& facts);

}  // namespace Quill::Tool
