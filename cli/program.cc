// SPDX-License-Identifier: Apache-2.0

#include "cli/program.h"

#include <CLI/CLI.hpp>

#include <quillon/version.h>

#include "cli/help.h"

namespace Quill::Tool {
namespace {

constexpr Command kCommands[] = {
    {"verify", "Verify the signatures of packages", DeclareVerify},
    {"inspect", "Show what a package is made of, and what its signatures cover", DeclareInspect},
    {"diff", "Show in what two packages differ: their signers and their entries", DeclareDiff},
    {"provision", "Label and certify a package's OAT and VDEX files", DeclareProvision},
    {"provision-art", "Label a package's ART file", DeclareProvisionArt},
    {"start-provision", "Open OAT and VDEX files for editing", DeclareStartProvision},
    {"sign-apk", "Label a package and its native libraries, and certify it", DeclareSignApk},
    {"label", "Let the kernel verify a file against its label", DeclareLabel},
    {"task", "Show a process's integrity value, its label, and which file reset it", DeclareTask},
};

}  // namespace

std::vector<DeclaredCommand> DeclareProgram(CLI::App& program) {
  program.name("quillon");
  program.description("Verify signed Android packages and label their files");
  program.set_version_flag("--version", "quillon " QUILLON_VERSION);
  SetHelp(program, {{}, {}, "\"quillon COMMAND --help\" explains a command."});
  std::vector<DeclaredCommand> declared;
  for (const Command& command : kCommands) {
    CLI::App* parser = program.add_subcommand(command.name, command.help);
    SetHelp(*parser, {});
    declared.push_back({parser, command.declare(*parser)});
  }
  return declared;
}

}  // namespace Quill::Tool
