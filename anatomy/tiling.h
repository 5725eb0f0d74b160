// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "anatomy/field.h"

namespace Quill::Anatomy {

// Puts the structures of a file together so that they tile it. They are claimed one after the
// other, and each byte belongs to the first that claims it.
class Tiling {
 public:
  explicit Tiling(uint64_t fileSize) : fileSize_(fileSize) {}

  // Claims the bytes of a field, which lie in the file and are tiled by the fields below it. Of
  // those that belong to an earlier claim, the field gets a note. It keeps the bytes in front of
  // them; the bytes behind them become fields "continued". A field without any byte of its own
  // marks the place.
  void Claim(Field field);

  // Returns the field "file" with the claims in order of offset, and fields "gap" between them.
  [[nodiscard]] Field Finish();

 private:
  struct Range {
    uint64_t begin = 0;
    uint64_t end = 0;
  };
  struct Piece {
    Field field;
    uint64_t place = 0;  // where it stands in the order
    Range claimed;       // of a claim that does not own all its bytes
    uint64_t taken = 0;  // the first of them that belongs to an earlier claim
  };

  // Returns the parts of a range that nobody has claimed, and claims them.
  std::vector<Range> TakeFree(Range range);
  void AddNotes();

  uint64_t fileSize_;
  std::map<uint64_t, uint64_t> owned_;  // begins and ends of what is claimed; none touches the next
  std::vector<Piece> pieces_;
};

}  // namespace Quill::Anatomy
