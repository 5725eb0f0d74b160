// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <quillon/apk.h>

#include "cli/signer_report.h"
#include "cli/zip_directory.h"
#include "findings/recorder.h"

namespace Quill::Tool {

// Something of a package that verified, for people and for programs.
struct FileWarning {
  std::string code;     // such as "key.dsa"; stable, docs/reasons.md lists them
  std::string message;  // one sentence without a full stop
  std::string hint;     // what to do next
  uint64_t count = 1;   // of entries, or of the times that it was found
};

// Returns what is worth knowing of `apk`, which verified; one warning for each code. A JAR
// signature covers little, unless all entries were checked.
[[nodiscard]] std::vector<FileWarning> FindWarnings(Apk& apk, const Findings& findings,
                                                    const std::vector<SignerReport>& signers,
                                                    const DirectoryFacts& directory,
                                                    bool areEntriesChecked);

// Returns the codes of all warnings.
[[nodiscard]] std::vector<std::string> WarningCodes();

}  // namespace Quill::Tool
