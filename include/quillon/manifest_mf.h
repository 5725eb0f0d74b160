// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <map>
#include <string>
#include <vector>

#include <quillon/export.h>

// The attributes of a JAR manifest (META-INF/MANIFEST.MF) or of a JAR signature file (.SF), which
// has the same syntax: sections of "Name: value" lines, each section ended by a blank line.
class QUILLON_EXPORT ManifestMf {
 public:
  using Section = std::map<std::string, std::string>;

  // Parses `text` and replaces what was loaded before. Returns false and logs one error line when a
  // name has no colon before the end, or a colon is followed by neither a space nor a line break.
  // The sections before the error are kept.
  [[nodiscard]] bool load(std::string text);

  // Returns the result of the last load; false before the first.
  explicit operator bool() const;

  // Returns the sections in file order, the main section first: only sections that a blank line
  // ends, and only attributes with a value.
  const std::vector<Section>& getSections() const;

 private:
  [[nodiscard]] bool parse();

  std::string text_;
  std::vector<Section> sections_;
  bool valid_ = false;
};
