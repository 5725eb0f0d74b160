// SPDX-License-Identifier: Apache-2.0

#include <CLI/CLI.hpp>
#include <memory>
#include <utility>

#include <quillon/entry_points.h>

#include "cli/commands.h"
#include "cli/help.h"
#include "cli/kernel_command.h"
#include "cli/logged_run.h"
#include "cli/open_files.h"
#include "cli/sdk_level.h"

// The commands for the entry points that the platform calls. Each opens its files, calls the entry
// point, prints its log and says what came of it.

namespace Quill::Tool {
namespace {

struct ProvisionOptions {
  std::vector<std::string> files;
  bool ignoreHalyx = false;
  KernelOptions kernel;
};

using EntryPoint = void (*)(const std::vector<std::unique_ptr<Fd>>& files,
                            const ProvisionOptions& options);

// Declares the operands, given as pairs of name and help text. If the first one is named "APK", it
// is the package.
CommandRun Declare(CLI::App& parser, const std::vector<std::pair<const char*, const char*>>& names,
                   std::vector<Example> examples, const std::shared_ptr<ProvisionOptions>& options,
                   EntryPoint entryPoint) {
  options->files.resize(names.size());
  for (size_t i = 0; i < names.size(); ++i) {
    parser.add_option(names[i].first, options->files[i], names[i].second)->required();
  }
  DeclareKernelOptions(parser, options->kernel);
  const bool hasPackage = std::string(names[0].first) == "APK";
  std::vector<StatusMeaning> statuses = {
      {kDone, "the work was done"},
      {kFailed,
       "a step failed, as the last line and the log say; the machine has no kernel for this, or the "
       "simulator did not answer; or the output could not be written"},
      {kUsage, "wrong usage, or the variable QUILLON_SDK is not a number"},
      {kUnreadable, "a file could not be opened or is not a regular file"}};
  if (hasPackage) {
    statuses.push_back({kUnverified, "nothing was labelled, because the rules do not apply"});
  }
  SetHelp(parser, {std::move(examples), std::move(statuses)});
  return [options, entryPoint, hasPackage, command = parser.get_name()] {
    if (!IsSdkLevelUsable()) return kUsage;
    const auto run = [&]() -> KernelReport {
      std::vector<std::unique_ptr<Fd>> files;
      const std::string obstacle = OpenFiles(options->files, files);
      if (!obstacle.empty()) return Obstacle(kUnreadable, obstacle);
      const int archive = hasPackage ? files[0]->GetFd() : -1;
      return RunLogged(archive, options->kernel.json, [&] { entryPoint(files, *options); });
    };
    return RunWithKernel(command, options->kernel, hasPackage ? options->files[0] : "", run);
  };
}

}  // namespace

CommandRun DeclareProvision(CLI::App& parser) {
  return Declare(
      parser,
      {{"APK", "The package"}, {"OAT", "Its compiled code"}, {"VDEX", "Its verified bytecode"}},
      {{"Label and certify the compiled files of a package",
        "quillon provision base.apk base.odex base.vdex"},
       {"Rehearse it with a simulated kernel, and list what is asked of it",
        "quillon provision --simulate base.apk base.odex base.vdex"},
       {"Rehearse that the second label is refused",
        "quillon provision --simulate --fail sign:2:EIO base.apk base.odex base.vdex"}},
      std::make_shared<ProvisionOptions>(), [](const auto& files, const ProvisionOptions&) {
        RunOEMFuncForProvisionOat(files[0]->GetFd(), files[1]->GetFd(), files[2]->GetFd());
      });
}

CommandRun DeclareProvisionArt(CLI::App& parser) {
  return Declare(parser, {{"APK", "The package"}, {"ART", "Its image"}},
                 {{"Label the image of a package", "quillon provision-art base.apk base.art"},
                  {"Rehearse it with the older kernel interface",
                   "quillon provision-art --simulate=legacy base.apk base.art"}},
                 std::make_shared<ProvisionOptions>(),
                 [](const auto& files, const ProvisionOptions&) {
                   RunOEMFuncForProvisionBootArt(files[0]->GetFd(), files[1]->GetFd());
                 });
}

CommandRun DeclareStartProvision(CLI::App& parser) {
  return Declare(parser, {{"OAT", "Compiled code"}, {"VDEX", "Verified bytecode"}},
                 {{"Open the compiled files of a package for editing",
                   "quillon start-provision base.odex base.vdex"},
                  {"Rehearse it with a simulated kernel",
                   "quillon start-provision --simulate base.odex base.vdex"}},
                 std::make_shared<ProvisionOptions>(),
                 [](const auto& files, const ProvisionOptions&) {
                   RunOEMFuncForStartProvisionOat(files[0]->GetFd(), files[1]->GetFd());
                 });
}

CommandRun DeclareSignApk(CLI::App& parser) {
  const auto options = std::make_shared<ProvisionOptions>();
  parser.add_flag("--ignore-halyx", options->ignoreHalyx,
                  "Label the package even if it is outside the Halyx feature");
  return Declare(parser, {{"APK", "The package"}},
                 {{"Label and certify an installed package", "quillon sign-apk base.apk"},
                  {"Label it even if it does not request the Halyx protection",
                   "quillon sign-apk --ignore-halyx base.apk"},
                  {"Rehearse it with a simulated kernel", "quillon sign-apk --simulate base.apk"}},
                 options, [](const auto& files, const ProvisionOptions& given) {
                   RunOEMFuncForApkSigner(files[0]->GetFd(), given.files[0].c_str(),
                                          given.ignoreHalyx ? 1 : 0);
                 });
}

}  // namespace Quill::Tool
