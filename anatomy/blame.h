// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "anatomy/package.h"
#include "findings/recorder.h"

namespace Quill::Anatomy {

// Returns the path of the field that a refusal is about, such as
// "signingBlock.v3.signers[0].signedData.digests[0].value"; empty when it is about none, or about
// one that the file does not have.
[[nodiscard]] std::string BlamedField(const Package& package, const Refusal& refusal);

}  // namespace Quill::Anatomy
