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

// Parses one text. The text is NUL-terminated and NUL stops every scan. text_[cursor_] is always
// readable; text_[cursor_ + 1] while cursor_ < end_.
class Parser {
 public:
  // Appends to `sections`.
  Parser(const std::string& text, std::vector<ManifestMf::Section>& sections)
      : text_(text.c_str()), end_(text.size()), sections_(sections) {}

  // Returns false and logs one error line for a syntax error. Sections before it are kept.
  // Deliberate: a section that no blank line ends is dropped.
  bool Parse() {
    while (cursor_ < end_) {
      if (!Step()) return false;
    }
    return true;
  }

 private:
  bool Step() {
    switch (state_) {
      case P_SECTION_START:
        SkipToSection();
        return true;
      case P_KEY:
        return ParseKey();
      case P_COLON:
        return ParseColon();
      case P_VALUE:
        value_ = TakeUntil("\n\r");
        state_ = P_EOL;
        return true;
      case P_CONTINUATION:
        value_ += TakeUntil("\n\r");
        state_ = P_EOL;
        return true;
      case P_EOL:
        ParseLineEnd();
        return true;
    }
    QUILL_LOGE("Parse manifest: Unexpected state.\n");
    return false;
  }

  void SkipToSection() {
    while (IsLineBreak(text_[cursor_]) || text_[cursor_] == ' ') ++cursor_;
    state_ = P_KEY;
  }

  bool ParseKey() {
    StoreAttribute();
    // Deliberate: only the colon ends a name, so a line without one joins the next line's name.
    key_ = TakeUntil(":");
    if (text_[cursor_] == '\0') {
      QUILL_LOGE("Parse manifest: Error: P_KEY: unexpected end of file after key '%s'\n",
                 key_.c_str());
      return false;
    }
    state_ = P_COLON;
    return true;
  }

  bool ParseColon() {
    const char next = text_[cursor_ + 1];
    if (next != ' ' && !IsLineBreak(next)) {
      QUILL_LOGE("Parse manifest: Error: P_COLON: unexpected 0x%02x after colon: %c\n",
                 static_cast<unsigned int>(static_cast<uint8_t>(next)), next);
      return false;
    }
    // Deliberate: a line break after the colon is skipped too, so after a bare LF the next line
    // loses its first character.
    cursor_ += 2;
    state_ = next == ' ' ? P_VALUE : P_EOL;
    return true;
  }

  // Skips the line break and chooses the state by the first character of the next line.
  void ParseLineEnd() {
    const char first = text_[cursor_];
    const char second = text_[cursor_ + 1];
    cursor_ += IsLineBreak(second) && second != first ? 2 : 1;
    if (IsLineBreak(text_[cursor_])) {
      EndSection();
      state_ = P_SECTION_START;
    } else if (text_[cursor_] == ' ') {
      ++cursor_;
      state_ = P_CONTINUATION;
    } else {
      state_ = P_KEY;
    }
  }

  void EndSection() {
    StoreAttribute();
    sections_.push_back(std::move(section_));
    section_.clear();
  }

  void StoreAttribute() {
    // Deliberate: an attribute without a value is dropped.
    if (!key_.empty() && !value_.empty()) section_[std::move(key_)] = std::move(value_);
    key_.clear();
    value_.clear();
  }

  // Takes the text up to one of the characters, or up to the next NUL.
  std::string TakeUntil(const char* stops) {
    const size_t length = std::strcspn(text_ + cursor_, stops);
    cursor_ += length;
    return std::string(text_ + cursor_ - length, length);
  }

  const char* const text_;
  const size_t end_;
  std::vector<ManifestMf::Section>& sections_;
  size_t cursor_ = 0;
  State state_ = P_SECTION_START;
  std::string key_;
  std::string value_;
  ManifestMf::Section section_;
};

}  // namespace

bool ManifestMf::load(std::string text) {
  text_ = std::move(text);
  sections_.clear();
  valid_ = parse();
  return valid_;
}

ManifestMf::operator bool() const { return valid_; }

const std::vector<ManifestMf::Section>& ManifestMf::getSections() const { return sections_; }

bool ManifestMf::parse() { return Parser(text_, sections_).Parse(); }
