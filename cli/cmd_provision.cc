// SPDX-License-Identifier: Apache-2.0

#include <CLI/CLI.hpp>
#include <memory>

#include <quillon/entry_points.h>

#include "cli/commands.h"
#include "cli/logged_run.h"
#include "cli/open_files.h"
#include "cli/sdk_level.h"
#include "cli/simulate_option.h"

// The commands for the entry points that the platform calls. Each opens its files, calls the entry
// point and prints its log.

namespace Quill::Tool {
namespace {

struct ProvisionOptions {
  std::vector<std::string> files;
  bool ignoreHalyx = false;
  std::string simulate;
};

using EntryPoint = void (*)(const std::vector<std::unique_ptr<Fd>>& files,
                            const ProvisionOptions& options);

// Declares the positional arguments, given as pairs of name and help text. If the first one is
// named "APK", it is the package.
CommandRun Declare(CLI::App& parser, const std::vector<std::pair<const char*, const char*>>& names,
                   const std::shared_ptr<ProvisionOptions>& options, EntryPoint entryPoint) {
  options->files.resize(names.size());
  for (size_t i = 0; i < names.size(); ++i) {
    parser.add_option(names[i].first, options->files[i], names[i].second)
        ->type_name("")
        ->required();
  }
  DeclareSimulate(parser, options->simulate);
  const bool hasPackage = std::string(names[0].first) == "APK";
  return [options, entryPoint, hasPackage] {
    if (!IsSdkLevelUsable()) return kUsage;
    const auto run = [&options, entryPoint, hasPackage]() -> ExitStatus {
      std::vector<std::unique_ptr<Fd>> files;
      if (!OpenFiles(options->files, files)) return kUnreadable;
      const int archive = hasPackage ? files[0]->GetFd() : -1;
      return RunLogged(archive, [&] { entryPoint(files, *options); });
    };
    return RunMaybeSimulated(options->simulate, hasPackage ? options->files[0] : "", run);
  };
}

}  // namespace

CommandRun DeclareProvision(CLI::App& parser) {
  return Declare(
      parser,
      {{"APK", "The package"}, {"OAT", "Its compiled code"}, {"VDEX", "Its verified bytecode"}},
      std::make_shared<ProvisionOptions>(), [](const auto& files, const ProvisionOptions&) {
        RunOEMFuncForProvisionOat(files[0]->GetFd(), files[1]->GetFd(), files[2]->GetFd());
      });
}

CommandRun DeclareProvisionArt(CLI::App& parser) {
  return Declare(parser, {{"APK", "The package"}, {"ART", "Its image"}},
                 std::make_shared<ProvisionOptions>(),
                 [](const auto& files, const ProvisionOptions&) {
                   RunOEMFuncForProvisionBootArt(files[0]->GetFd(), files[1]->GetFd());
                 });
}

CommandRun DeclareStartProvision(CLI::App& parser) {
  return Declare(parser, {{"OAT", "Compiled code"}, {"VDEX", "Verified bytecode"}},
                 std::make_shared<ProvisionOptions>(),
                 [](const auto& files, const ProvisionOptions&) {
                   RunOEMFuncForStartProvisionOat(files[0]->GetFd(), files[1]->GetFd());
                 });
}

CommandRun DeclareSignApk(CLI::App& parser) {
  const auto options = std::make_shared<ProvisionOptions>();
  parser.add_flag("--ignore-halyx", options->ignoreHalyx,
                  "Label the package even if it is outside the Halyx feature");
  return Declare(parser, {{"APK", "The package"}}, options,
                 [](const auto& files, const ProvisionOptions& given) {
                   RunOEMFuncForApkSigner(files[0]->GetFd(), given.files[0].c_str(),
                                          given.ignoreHalyx ? 1 : 0);
                 });
}

}  // namespace Quill::Tool
