// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

namespace Quill::Tool {

// These say what an error of the archive library means, from its text. A text that they do not know
// is returned as it is.

// Of an entry that cannot be found or extracted. The result continues a sentence about the entry.
[[nodiscard]] std::string EntryErrorText(std::string_view libraryText);

// Of an archive that cannot be opened, although its end record fits the file.
[[nodiscard]] std::string ArchiveErrorText(std::string_view libraryText);

}  // namespace Quill::Tool
