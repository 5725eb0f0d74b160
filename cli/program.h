// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vector>

#include "cli/commands.h"

namespace Quill::Tool {

struct DeclaredCommand {
  CLI::App* parser;  // owned by the program's parser
  CommandRun run;
};

// Declares the program and its commands, with their options and help. The help, the manual pages
// and the completion scripts are made from this declaration.
std::vector<DeclaredCommand> DeclareProgram(CLI::App& program);

}  // namespace Quill::Tool
