// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <quillon/file.h>

#include "anatomy/field.h"
#include "util/byte_cursor.h"

namespace Quill::Anatomy {

// What a file is made of, as far as it can be read, and what of it the verifier goes by. Nothing is
// verified.
struct Package {
  std::shared_ptr<MapFile> mapping;
  // The whole file. Below it, in order of offset: "entries[0]" and so on, numbered as the central
  // directory lists them, "signingBlock", "centralDirectory", "endRecord", "comment", "trailing";
  // "gap" for bytes that nobody claims; "continued" for the rest of what an earlier claim
  // interrupts.
  Field file;

  // The path of the pair that the verifier verifies, such as "signingBlock.v3"; empty when it finds
  // none and goes by the JAR signature.
  std::string chosenPair;
  // The entry names of the signature file that the verifier reads, and of its block; empty: none.
  std::string signatureFile;
  std::string signatureBlock;

  ByteCursor Bytes() const { return {mapping->Data(), mapping->Size()}; }
};

// Reads the file behind a mapping. Each length is read once. Memory and time are bounded: a tree
// has at most four million fields, and at most 64 MiB are extracted. A file that shrinks meanwhile
// raises SIGBUS. Logs lines of the verifier's parsers. Throws std::bad_alloc only.
[[nodiscard]] Package ReadPackage(std::shared_ptr<MapFile> mapping);

// Returns the entry of that name: the last that the central directory lists. Null: there is none.
[[nodiscard]] const Field* FindEntryOf(const Package& package, const std::string& name);

// Returns the path of the field that a user means. It may have the name of an entry in place of its
// number, as in "entries[classes.dex].data"; a number of an entry counts as such. A path that leads
// nowhere is returned as it is.
[[nodiscard]] std::string NumberedPath(const Package& package, const std::string& path);

}  // namespace Quill::Anatomy
