// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <nlohmann/json_fwd.hpp>

namespace Quill::Tool {

// Prints the object that docs/schema/diff.json describes as lines for people. What matters most
// comes first, and long lists are cut short. Returns false, with a diagnostic, when the output
// cannot be written.
[[nodiscard]] bool PrintDiff(const nlohmann::ordered_json& diff);

}  // namespace Quill::Tool
