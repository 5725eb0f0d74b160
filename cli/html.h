// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// The pages that the tool writes: static, in printable ASCII.

namespace Quill::Tool {

// Returns the text for an element or for a quoted attribute. It shows as EscapeForTerminal has it.
[[nodiscard]] std::string HtmlText(std::string_view text);

// The same of a text of any length, cut off behind about `most` bytes.
[[nodiscard]] std::string HtmlCut(std::string_view text, size_t most);

// Returns a page up to its body. Its policy lets a browser load nothing and run nothing, whatever
// the body holds.
[[nodiscard]] std::string PageStart(std::string_view title);
[[nodiscard]] std::string PageEnd();

}  // namespace Quill::Tool
