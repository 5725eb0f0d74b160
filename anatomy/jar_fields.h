// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "anatomy/field.h"
#include "anatomy/field_reader.h"
#include "util/byte_cursor.h"

// What the files of a JAR signature hold, field by field. `parent` is the field of all their bytes.

namespace Quill::Anatomy {

// Takes a manifest or a signature file: "sections", each with the "attributes" that the verifier's
// parser finds there. What that parser rejects, or drops, is "unread".
void TakeManifest(const FieldReader& reader, Field& parent);

// Takes a PKCS #7 block down to its certificates and to the fields of its signers.
void TakePkcs7(const FieldReader& reader, Field& parent);

// Returns the name of the algorithm in a field of such a block, such as "rsaEncryption". Without a
// name that is its object identifier, or "unknown".
[[nodiscard]] std::string NameOfAlgorithm(ByteCursor der);

}  // namespace Quill::Anatomy
