// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "cli/inspection.h"

namespace Quill::Tool {

// Returns an SVG element of printable ASCII that needs nothing else, also as a file: the whole file
// to scale, then its signing block, then the signer that matters most, each with the ranges of its
// coverage. Letters and hatches say what colours do. A few megabytes at most, for any file.
[[nodiscard]] std::string PictureOf(const Inspection& inspection);

}  // namespace Quill::Tool
