// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <sstream>
#include <utility>
#include <vector>

#include <quillon/version.h>

#include "cli/commands.h"
#include "cli/operands.h"
#include "cli/output.h"

namespace Quill::Tool {
namespace {

constexpr Command kCommands[] = {
    {"verify", "Verify the signatures of packages", DeclareVerify},
    {"provision", "Label and certify a package's OAT and VDEX files", DeclareProvision},
    {"provision-art", "Label a package's ART file", DeclareProvisionArt},
    {"start-provision", "Open OAT and VDEX files for editing", DeclareStartProvision},
    {"sign-apk", "Label a package and its native libraries, and certify it", DeclareSignApk},
    {"label", "Let the kernel verify a file against its label", DeclareLabel},
    {"task", "Show a process's integrity value, its label, and which file reset it", DeclareTask},
};

ExitStatus RefuseUsage(const std::string& mistake) {
  PrintDiagnostic(mistake);
  PrintDiagnostic("try \"quillon --help\"");
  return kUsage;
}

// Prints the help or the version if the command line asks for it, otherwise what is wrong with it.
ExitStatus Answer(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream answer;
  std::ostringstream ignored;
  if (app.exit(error, answer, ignored) == 0) return PrintText(answer.str()) ? kDone : kFailed;
  return RefuseUsage(error.what());
}

using Runs = std::vector<std::pair<CLI::App*, CommandRun>>;

// Prepares the arguments for the parser: in reverse order, with operands that it does not
// interpret.
std::vector<std::string> PrepareArguments(std::vector<std::string> arguments, const Runs& runs) {
  const auto name = std::find_if(arguments.begin(), arguments.end(),
                                 [](const std::string& text) { return text.substr(0, 1) != "-"; });
  for (const auto& [parser, run] : runs) {
    if (name == arguments.end() || parser->get_name() != *name) continue;
    SpellOperands(*parser, static_cast<size_t>(name - arguments.begin()) + 1, arguments);
    break;
  }
  std::reverse(arguments.begin(), arguments.end());
  return arguments;
}

ExitStatus Run(std::vector<std::string> arguments) {
  CLI::App app("Verify signed Android packages and label their files.", "quillon");
  app.set_version_flag("--version", "quillon " QUILLON_VERSION);
  app.require_subcommand(0, 1);
  Runs runs;
  for (const Command& command : kCommands) {
    CLI::App* parser = app.add_subcommand(command.name, command.help);
    runs.emplace_back(parser, command.declare(*parser));
    TakeOperandsLiterally(*parser);
  }
  try {
    app.parse(PrepareArguments(std::move(arguments), runs));
  } catch (const CLI::ParseError& error) {
    return Answer(app, error);
  }
  for (const auto& [parser, run] : runs) {
    if (!parser->parsed()) continue;
    const std::vector<std::string> unexpected = UnexpectedArguments(*parser);
    if (unexpected.empty()) return run();
    return RefuseUsage(fmt::format("Unexpected: {}", fmt::join(unexpected, ", ")));
  }
  return RefuseUsage("A subcommand is required");
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
