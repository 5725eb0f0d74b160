// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace CLI {
class App;
}

namespace Quill::Tool {

// Returns the name of the manual page of the program or of a command, such as "quillon-verify".
[[nodiscard]] std::string PageName(const CLI::App& parser);

// Returns the manual page of the program or of a command, in the format of man(7). `date` is that
// of the version.
[[nodiscard]] std::string ManualPage(const CLI::App& parser, const std::string& date);

}  // namespace Quill::Tool
