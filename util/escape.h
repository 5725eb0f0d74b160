// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

// Needs nothing but the standard library, so that others than the tool can compile it in.

namespace Quill {

// The text with every byte that is not part of well-formed UTF-8 as \xNN.
std::string EscapeInvalidUtf8(std::string_view text);

// The text with nothing in it that steers a terminal, that it shows as nothing, or by which it
// reorders what it shows: besides the bytes above, C0 controls and DEL as \xNN, and as \u{NNNN} C1
// controls, the soft hyphen, characters without width, line and paragraph separators, marks,
// overrides, embeddings and isolates of a direction, and tags. Backslashes stay as they are.
//
//   "a\x1b[31m\u202eb" -> "a\x1b[31m\u{202e}b", where the right-hand side is meant literally
std::string EscapeForTerminal(std::string_view text);

// The text between double quotes, with a backslash before each quote and backslash of its own.
std::string Quote(std::string_view text);

}  // namespace Quill
