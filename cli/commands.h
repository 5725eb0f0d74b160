// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace Quill::Tool {

// What the program ends with. When several apply, the smallest that is not kDone counts.
enum ExitStatus : int {
  kDone = 0,        // all verified or done
  kFailed = 1,      // something was refused or failed
  kUsage = 2,       // the command line makes no sense
  kUnreadable = 3,  // a file could not be opened, is no ZIP archive, changed meanwhile, or cost
                    // more than could be had
  kUnverified = 4,  // something was left unverified: never a package, or outside the Halyx feature
};

// Runs a subcommand whose options have been parsed.
using CommandRun = std::function<ExitStatus()>;

// One subcommand; main.cc has the list. `declare` adds its options to `parser`, which outlives the
// function that it returns.
struct Command {
  const char* name;
  const char* help;
  CommandRun (*declare)(CLI::App& parser);
};

CommandRun DeclareVerify(CLI::App& parser);
CommandRun DeclareProvision(CLI::App& parser);
CommandRun DeclareProvisionArt(CLI::App& parser);
CommandRun DeclareStartProvision(CLI::App& parser);
CommandRun DeclareSignApk(CLI::App& parser);
CommandRun DeclareLabel(CLI::App& parser);
CommandRun DeclareTask(CLI::App& parser);

}  // namespace Quill::Tool
