// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace Quill::Tool {

// Exit status of the program. If several apply, the smallest one other than kDone is returned.
enum [[nodiscard]] ExitStatus : int{
    kDone = 0,        // all verified or done
    kFailed = 1,      // something was refused or failed, or the output could not be written
    kUsage = 2,       // invalid command line, or QUILLON_SDK is no SDK level
    kUnreadable = 3,  // a file could not be opened, is not a ZIP archive, changed while it was
                      // read, or cost more than it was allowed
    kUnverified = 4,  // a file was not verified: it never was a package, or is outside the Halyx
                      // feature
};

// Runs a subcommand whose options have been parsed.
using CommandRun = std::function<ExitStatus()>;

// A subcommand; program.cc has the list. `declare` adds its options to `parser` and returns the
// function that runs it. `parser` outlives that function.
struct Command {
  const char* name;
  const char* help;
  CommandRun (*declare)(CLI::App& parser);
};

CommandRun DeclareVerify(CLI::App& parser);
CommandRun DeclareInspect(CLI::App& parser);
CommandRun DeclareDiff(CLI::App& parser);
CommandRun DeclareProvision(CLI::App& parser);
CommandRun DeclareProvisionArt(CLI::App& parser);
CommandRun DeclareStartProvision(CLI::App& parser);
CommandRun DeclareSignApk(CLI::App& parser);
CommandRun DeclareLabel(CLI::App& parser);
CommandRun DeclareTask(CLI::App& parser);

}  // namespace Quill::Tool
