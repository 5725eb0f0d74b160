#include <CLI/CLI.hpp>
#include <exception>
#include <sstream>
#include <utility>
#include <vector>

#include "cli/commands.h"
#include "cli/output.h"

namespace Quill::Tool {
namespace {

// The project's version; a test compares it with that of the build.
constexpr const char* kVersion = "1.0.0";

constexpr Command kCommands[] = {
    {"verify", "Verify the signatures of packages", DeclareVerify},
    {"provision", "Label and certify a package's OAT and VDEX files", DeclareProvision},
    {"provision-art", "Label a package's ART file", DeclareProvisionArt},
    {"start-provision", "Open OAT and VDEX files for editing", DeclareStartProvision},
    {"sign-apk", "Label a package and its native libraries", DeclareSignApk},
    {"label", "Have the kernel verify a file against its label", DeclareLabel},
    {"task", "Show what the kernel keeps of a process", DeclareTask},
};

ExitStatus RefuseUsage(const char* mistake) {
  PrintDiagnostic(mistake);
  PrintDiagnostic("try \"quillon --help\"");
  return kUsage;
}

// Prints the help or version that was asked for, or what is wrong with the command line.
ExitStatus Answer(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream answer;
  std::ostringstream ignored;
  if (app.exit(error, answer, ignored) == 0) return PrintText(answer.str()) ? kDone : kFailed;
  return RefuseUsage(error.what());
}

ExitStatus Run(int argc, const char* const* argv) {
  CLI::App app("Verify signed Android packages and label their files.", "quillon");
  app.set_version_flag("--version", std::string("quillon ") + kVersion);
  app.require_subcommand(0, 1);
  std::vector<std::pair<const CLI::App*, CommandRun>> runs;
  for (const Command& command : kCommands) {
    CLI::App* parser = app.add_subcommand(command.name, command.help);
    runs.emplace_back(parser, command.declare(*parser));
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return Answer(app, error);
  }
  for (const auto& [parser, run] : runs) {
    if (parser->parsed()) return run();
  }
  return RefuseUsage("A subcommand is required");
}

}  // namespace
}  // namespace Quill::Tool

int main(int argc, char** argv) {
  using namespace Quill::Tool;
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    PrintDiagnostic(error.what());
    return kFailed;
  }
}
