// SPDX-License-Identifier: Apache-2.0

#include "cli/archive_error.h"

#include <algorithm>
#include <iterator>

namespace Quill::Tool {
namespace {

struct ErrorText {
  std::string_view libraryText;
  const char* text;
};

// The library returns one code for several faults, and "Iteration ended" for a method that it does
// not know. It checks no CRC, and a stored entry is as long as it says.
constexpr ErrorText kEntryErrors[] = {
    {"Entry not found", "it is not in the archive"},
    {"Iteration ended", "its compression method is not supported, or it is encrypted"},
    {"Zlib error", "its compressed data are damaged or encrypted"},
    {"Inconsistent information", "its headers or its length are wrong, or it is encrypted"},
    {"Invalid offset", "its headers name a wrong place or length"},
    {"I/O error", "it is longer than its headers say, or cannot be read"},
};

constexpr ErrorText kArchiveErrors[] = {
    {"Invalid file", "its first header or its central directory is damaged"},
    {"Invalid offset", "the central directory is not where the end record says"},
    {"Invalid entry name", "an entry has a name that is damaged"},
    {"Duplicate entries in archive", "two entries have the same name"},
    {"I/O error", "it cannot be read"},
};

template <size_t count>
std::string TextOf(std::string_view libraryText, const ErrorText (&errors)[count]) {
  const auto* found =
      std::find_if(std::begin(errors), std::end(errors),
                   [&](const ErrorText& error) { return error.libraryText == libraryText; });
  return std::string(found == std::end(errors) ? libraryText : found->text);
}

}  // namespace

std::string EntryErrorText(std::string_view libraryText) {
  return TextOf(libraryText, kEntryErrors);
}

std::string ArchiveErrorText(std::string_view libraryText) {
  return TextOf(libraryText, kArchiveErrors);
}

}  // namespace Quill::Tool
