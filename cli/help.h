// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "cli/commands.h"

namespace Quill::Tool {

struct Example {
  const char* purpose;
  const char* command;
};

struct StatusMeaning {
  ExitStatus status;
  const char* meaning;
};

// What the help of a program or command says besides what its parser declares.
struct HelpNotes {
  std::vector<Example> examples;
  std::vector<StatusMeaning> statuses;
  const char* end = "";  // a paragraph
};

// Lets `parser` print its help in 80 columns, with these notes.
void SetHelp(CLI::App& parser, HelpNotes notes);

// Returns the help of the program or of one of its commands.
[[nodiscard]] std::string HelpText(const CLI::App& parser);

}  // namespace Quill::Tool
