// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

// Needs only the standard library: the simulator is linked with this file but not with the library.

namespace Quill {

// Returns the text with every byte that is not part of well-formed UTF-8 as \xNN.
[[nodiscard]] std::string EscapeInvalidUtf8(std::string_view text);

// Returns the text without characters that control a terminal, that it does not show, or that
// reorder what it shows. As \xNN: the bytes above, C0 controls and DEL. As \u{NNNN}: C1 controls,
// the soft hyphen, fillers and other characters that show nothing, line and paragraph separators,
// variation selectors, tags, and marks, overrides, embeddings and isolates of a direction.
// Backslashes stay as they are.
//
//   "a\x1b[31m\u202eb" -> "a\x1b[31m\u{202e}b", where the right-hand side is meant literally
[[nodiscard]] std::string EscapeForTerminal(std::string_view text);

// Returns the text in double quotes, with a backslash before each quote and backslash in it.
[[nodiscard]] std::string Quote(std::string_view text);

}  // namespace Quill
