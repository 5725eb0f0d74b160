// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "anatomy/package.h"
#include "cli/package_report.h"

namespace Quill::Tool {

// Who signed a package and how: lists of texts, by the names that docs/schema/diff.json describes.
// `package` is null when the file could not be read.
[[nodiscard]] nlohmann::ordered_json SigningFacts(const PackageReport& report,
                                                  const Anatomy::Package* package);

// The signers of a package that verified, for each range of SDK levels; empty for others.
[[nodiscard]] nlohmann::ordered_json SignersByLevel(const PackageReport& report);

// Compares the signers of two packages, as SignersByLevel returns them, at each SDK level that one
// of them is signed for. The worst level counts:
//   "same"         the same chains of keys
//   "rotated"      the signer of b is behind the key of a, in a lineage that starts with the same
//   "rolled-back"  the signer of b has a key that the signer of a no longer uses
//   "another"      none of these; also the same v2 signers in another order
//   "unknown"      one of the two did not verify
[[nodiscard]] std::string CompareSigners(const nlohmann::ordered_json& a,
                                         const nlohmann::ordered_json& b);

}  // namespace Quill::Tool
