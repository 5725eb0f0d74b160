// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "cli/commands.h"

namespace CLI {
class Option;
}

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

// Returns the notes that SetHelp was given.
[[nodiscard]] const HelpNotes& NotesOf(const CLI::App& parser);

// Returns an option's description with the value that it has if it is not given.
[[nodiscard]] std::string OptionDescription(const CLI::Option& option);

// Returns the help of the program or of one of its commands.
[[nodiscard]] std::string HelpText(const CLI::App& parser);

}  // namespace Quill::Tool
