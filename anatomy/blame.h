// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "anatomy/package.h"
#include "findings/recorder.h"

namespace Quill::Anatomy {

// Returns the path of the field that a refusal is about, such as
// "signingBlock.v3.signers[0].signedData.digests[0].value"; empty when it is about none, or about
// one that the file does not have. Of what lies inside an entry, it leads behind "decoded" if the
// tree has that.
[[nodiscard]] std::string BlamedField(const Package& package, const Refusal& refusal);

// Returns the name of the entry inside which lies what a refusal is about, such as
// "META-INF/CERT.SF"; empty when that lies in the file itself.
[[nodiscard]] std::string BlamedEntry(const Package& package, const Refusal& refusal);

}  // namespace Quill::Anatomy
