// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>

namespace Quill::Tool {

// The extended label that the simulated kernel keeps with a file, in words, compared with the file
// and with the package that it belongs to as they are now; nothing when the file has none. An empty
// `package` leaves its key uncompared.
std::optional<std::string> DescribeLabel(const std::string& file, const std::string& package);

}  // namespace Quill::Tool
