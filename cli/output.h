// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

namespace Quill::Tool {

// All that the program says passes through here. Text that may come from a package or a file name
// reaches the streams only as EscapeForTerminal leaves it.

// Writes our own text to standard output, at once. False, with a diagnostic, when that fails.
bool PrintText(std::string_view text);

// Writes one line, given without its line break, to standard output; as PrintText otherwise.
bool PrintLine(std::string_view line);

// Writes one line to standard error. A failure is not reported: there is nowhere to.
void PrintErrorLine(std::string_view line);

// Writes "quillon: " and the message as one line to standard error.
void PrintDiagnostic(std::string_view message);

}  // namespace Quill::Tool
