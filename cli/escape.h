#pragma once

#include <string>
#include <string_view>

namespace Quill::Tool {

// The text with every byte that is not part of well-formed UTF-8 as \xNN.
std::string EscapeInvalidUtf8(std::string_view text);

// The text with nothing in it that steers a terminal or reorders what it shows: besides the bytes
// above, C0 controls and DEL as \xNN, C1 controls and bidirectional overrides, embeddings and
// isolates as \u{NNNN}. Backslashes stay as they are.
//
//   "a\x1b[31m\u202eb" -> "a\x1b[31m\u{202e}b", where the right-hand side is meant literally
std::string EscapeForTerminal(std::string_view text);

}  // namespace Quill::Tool
