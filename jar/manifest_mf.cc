// SPDX-License-Identifier: Apache-2.0

#include <cstdint>
#include <cstring>
#include <utility>

#include <quillon/manifest_mf.h>

#include "util/log.h"

namespace {

enum State : uint32_t {
  P_SECTION_START,  // before a section
  P_KEY,            // at an attribute name
  P_COLON,          // at the colon behind it
  P_VALUE,          // at a value
  P_CONTINUATION,   // at a further line of the value
  P_EOL,            // at the end of a line
};

bool IsLineBreak(char c) { return c == '\n' || c == '\r'; }

}  // namespace

bool ManifestMf::load(std::string text) {
  text_ = std::move(text);
  sections_.clear();
  valid_ = parse();
  return valid_;
}

ManifestMf::operator bool() const { return valid_; }

const std::vector<ManifestMf::Section>& ManifestMf::getSections() const { return sections_; }

// The zero behind the text, like any zero inside it, stops every scan. Every step leaves the cursor
// at most on it, so the character under the cursor and, short of the end, the one behind can be
// read.
bool ManifestMf::parse() {
  const char* const text = text_.c_str();
  const size_t end = text_.size();
  size_t cursor = 0;
  State state = P_SECTION_START;
  std::string key;
  std::string value;
  Section section;

  const auto storeAttribute = [&] {
    // Deliberate: an attribute without a value is dropped.
    if (!key.empty() && !value.empty()) section[std::move(key)] = std::move(value);
    key.clear();
    value.clear();
  };
  const auto takeUntil = [&](const char* stops) {
    const size_t length = std::strcspn(text + cursor, stops);
    cursor += length;
    return std::string(text + cursor - length, length);
  };

  while (cursor < end) {
    switch (state) {
      case P_SECTION_START:
        while (IsLineBreak(text[cursor]) || text[cursor] == ' ') ++cursor;
        state = P_KEY;
        break;

      case P_KEY:
        storeAttribute();
        // Deliberate: only the colon ends a name, so a line without one joins the next line's name.
        key = takeUntil(":");
        if (text[cursor] == '\0') {
          QUILL_LOGE("Parse manifest: Error: P_KEY: unexpected end of file after key '%s'\n",
                     key.c_str());
          return false;
        }
        state = P_COLON;
        break;

      case P_COLON: {
        const char next = text[cursor + 1];
        if (next != ' ' && !IsLineBreak(next)) {
          QUILL_LOGE("Parse manifest: Error: P_COLON: unexpected 0x%02x after colon: %c\n",
                     static_cast<unsigned int>(static_cast<uint8_t>(next)), next);
          return false;
        }
        // Deliberate: past a line break too, which P_EOL then looks for one character later; after
        // a lone line feed the next line loses its first character.
        cursor += 2;
        state = next == ' ' ? P_VALUE : P_EOL;
        break;
      }

      case P_VALUE:
        value = takeUntil("\n\r");
        state = P_EOL;
        break;

      case P_CONTINUATION:
        value += takeUntil("\n\r");
        state = P_EOL;
        break;

      case P_EOL: {
        const char first = text[cursor];
        const char second = text[cursor + 1];
        cursor += IsLineBreak(second) && second != first ? 2 : 1;
        if (IsLineBreak(text[cursor])) {
          storeAttribute();
          sections_.push_back(std::move(section));
          section.clear();
          state = P_SECTION_START;
        } else if (text[cursor] == ' ') {
          ++cursor;
          state = P_CONTINUATION;
        } else {
          state = P_KEY;
        }
        break;
      }

      default:
        QUILL_LOGE("Parse manifest: Unexpected state.\n");
        return false;
    }
  }
  // Deliberate: a section that no blank line ends is dropped.
  return true;
}
