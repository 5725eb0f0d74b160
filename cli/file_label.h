// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>

namespace Quill::Tool {

// Describes in words the label that the simulated kernel keeps with a file, and compares it with
// the present file and with the key of `package`, unless that is empty. Returns nullopt when the
// file has no label.
[[nodiscard]] std::optional<std::string> DescribeLabel(const std::string& file,
                                                       const std::string& package);

}  // namespace Quill::Tool
