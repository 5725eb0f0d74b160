// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "fuzz/package_mutator.h"

namespace Quill {

// Changes the archive of a package: the entries, which it may copy, leave out, rename, or write
// into the signing block. Local headers and central directory are written again, so that they match
// each other, the end record and the new offsets. Often one field is wrong afterwards: in one of
// the two headers, or the same in both. Does nothing if the central directory cannot be read.
//
// Entries in the signing block stand in its first pair. Returns that pair, or nothing.
ByteVector ChangeArchive(PackageParts& parts, Random& random);

}  // namespace Quill
