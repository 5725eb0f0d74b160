// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>

#include "cli/child.h"
#include "cli/package_report.h"

namespace Quill::Tool {

// What the user names to compare packages with. Each file is read by a child of its own, since it
// may be hostile, too. Failures print a diagnostic.

// Reads what --signer takes: a SHA-256 digest, the file of a certificate, or a package. `rules` are
// those by which a package must verify.
[[nodiscard]] std::optional<ExpectedSigner> ReadExpectedSigner(const std::string& text,
                                                               const VerifyRules& rules,
                                                               const ChildLimits& limits);

// Reads the first file of a set. Nothing when it does not verify; prints nothing then.
[[nodiscard]] std::optional<Sibling> ReadSibling(const std::string& file, const VerifyRules& rules,
                                                 const ChildLimits& limits);

}  // namespace Quill::Tool
