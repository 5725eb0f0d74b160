// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/help.h"
#include "cli/output.h"
#include "cli/program.h"
#include "cli/usage.h"

namespace Quill::Tool {
namespace {

bool IsGiven(const std::vector<Argument>& arguments, const CLI::Option* option) {
  return std::any_of(arguments.begin(), arguments.end(), [option](const Argument& argument) {
    return argument.declared == option && option != nullptr;
  });
}

ExitStatus Answer(const std::string& text) { return PrintText(text) ? kDone : kFailed; }

// `name` is what to ask for help.
ExitStatus RefuseUsage(const std::string& mistake, const std::string& name) {
  PrintDiagnostic(mistake);
  PrintDiagnostic(fmt::format("try \"{} --help\"", name));
  return kUsage;
}

// Runs a command with the words behind its name.
ExitStatus RunCommand(CLI::App& parser, const CommandRun& run, Words::const_iterator first,
                      Words::const_iterator last) {
  std::string mistake;
  {
    const std::vector<Argument> arguments = TakeApart(parser, first, last);
    if (IsGiven(arguments, parser.get_help_ptr())) return Answer(HelpText(parser));
    mistake = FindMistake(parser, arguments);
    try {
      if (mistake.empty()) ParseLiterally(parser, arguments);
    } catch (const CLI::ParseError& error) {
      mistake = error.what();
    }
  }
  if (!mistake.empty()) return RefuseUsage(mistake, "quillon " + parser.get_name());
  return run();
}

ExitStatus Run(const Words& words) {
  CLI::App program;
  const std::vector<DeclaredCommand> commands = DeclareProgram(program);

  const auto name = std::find_if_not(words.begin(), words.end(), LooksLikeOption);
  const std::vector<Argument> arguments = TakeApart(program, words.begin(), name);
  if (IsGiven(arguments, program.get_help_ptr())) return Answer(HelpText(program));
  const std::string mistake = FindMistake(program, arguments);
  if (!mistake.empty()) return RefuseUsage(mistake, program.get_name());
  if (!arguments.empty()) return Answer(program.version() + '\n');
  if (name == words.end()) return RefuseUsage("no command is named", program.get_name());
  for (const auto& [parser, run] : commands) {
    if (parser->get_name() == *name) return RunCommand(*parser, run, name + 1, words.end());
  }
  return RefuseUsage(UnknownCommand(program, *name), program.get_name());
}

// Opens the standard descriptors that are closed, so that no file of ours gets their numbers. What
// is written to them then fails.
void OccupyStandardDescriptors() {
  for (int fd = open("/dev/null", O_RDONLY); fd >= 0; fd = open("/dev/null", O_RDONLY)) {
    if (fd <= STDERR_FILENO) continue;
    close(fd);
    return;
  }
}

}  // namespace
}  // namespace Quill::Tool

int main(int argc, char** argv) {
  using namespace Quill::Tool;
  OccupyStandardDescriptors();
  try {
    return Run({argv + std::min(argc, 1), argv + argc});
  } catch (const std::exception& error) {
    PrintDiagnostic(error.what());
    return kFailed;
  }
}
