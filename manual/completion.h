// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace CLI {
class App;
}

namespace Quill::Tool {

// Return the script that completes the program's arguments in a shell: its commands, and for each
// one its options and their values.
[[nodiscard]] std::string BashCompletion(const CLI::App& program);
[[nodiscard]] std::string ZshCompletion(const CLI::App& program);
[[nodiscard]] std::string FishCompletion(const CLI::App& program);

}  // namespace Quill::Tool
