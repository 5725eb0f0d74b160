// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

namespace Quill::Tool {

// All output of the program goes through these functions. Lines are escaped by EscapeForTerminal,
// because they may contain text from a package or a file name.

// Writes text of the program itself to standard output, unescaped, and flushes. Returns false, with
// a diagnostic, on failure.
[[nodiscard]] bool PrintText(std::string_view text);

// Escapes the line, adds a line break and writes both like PrintText.
[[nodiscard]] bool PrintLine(std::string_view line);

// Writes one line to standard error. Failures are ignored: there is no place left to report them.
void PrintErrorLine(std::string_view line);

// Writes "quillon: " and the message as one line to standard error.
void PrintDiagnostic(std::string_view message);

// Formats a file's name for a line that goes on with ": " or ", ". Quotes it when it contains a
// colon or a comma or starts with a quote.
[[nodiscard]] std::string FileText(const std::string& file);

// Formats the name of a package. Quotes it unless it has letters, digits, "." and "_" alone.
[[nodiscard]] std::string NameText(const std::string& name);

}  // namespace Quill::Tool
