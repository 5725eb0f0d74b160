// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "anatomy/field.h"
#include "anatomy/field_reader.h"

// The APK Signing Block, field by field.

namespace Quill::Anatomy {

// Takes a signing block off a cursor that ends where the block does: its size, the pairs and the
// footer. Pairs of known schemes are read down to each signer's fields, as far as the verifier can
// parse them, and have the names "v2", "v3" and "v31"; a second pair of a name has the index 1.
// A "sourceStamp" has fields for its certificate, signatures and attributes. Others are "padding",
// "dependencyMetadata", and "pairs[3]" for the fourth pair when its ID is not known.
[[nodiscard]] Field TakeSigningBlock(const FieldReader& reader, ByteCursor cursor);

// Takes a block whose sizes do not agree: all between the first size and the footer is "unread".
[[nodiscard]] Field TakeDamagedBlock(const FieldReader& reader, ByteCursor cursor);

}  // namespace Quill::Anatomy
