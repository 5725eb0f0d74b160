// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include <quillon/apk.h>

#include "cli/package_report.h"
#include "cli/zip_directory.h"
#include "findings/recorder.h"

namespace Quill::Tool {

// Refuses a package that verified but breaks the user's rules, for one of the SDK levels that its
// signers are for. `apk` is the package, whose `findings` are still being recorded: this may check
// the entries of a JAR, which changes the warnings.
void ApplyRules(Apk& apk, const Findings& findings, const DirectoryFacts& directory,
                const VerifyRules& rules, PackageReport& report);

}  // namespace Quill::Tool
