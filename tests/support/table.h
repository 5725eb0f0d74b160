// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/support/notation.h"

namespace Quill {

// A case of a table in tests/data: fields between " | " on a line, and the log lines expected, each
// on a line of its own behind two blanks. Empty lines and those that start with # are comments.
struct Row {
  std::string text;
  std::vector<std::string> fields;
  std::string log;
};

inline std::vector<Row> ReadTable(const std::string& name) {
  std::ifstream file(QUILLON_DATA_DIR "/" + name);
  std::vector<Row> rows;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line.compare(0, 2, "  ") == 0) {
      rows.back().log += line.substr(2) + "\n";
    } else {
      rows.push_back({line, Split(line, " | "), ""});
    }
  }
  EXPECT_FALSE(rows.empty()) << name;
  return rows;
}

}  // namespace Quill
