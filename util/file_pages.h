// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include <quillon/file.h>

namespace Quill {

// The pages of a mapped file, which a reader can give back to the kernel when it has passed them.
// A page that is read again afterwards is mapped again, with the same bytes. Nothing here logs or
// changes errno.
class FilePages {
 public:
  FilePages() = default;  // no pages
  // All pages of a mapping that MapFileRO has made and that nobody has changed since: anonymous
  // memory, or a page that was written to, would lose its bytes. Asks the kernel to read ahead. The
  // mapping is borrowed and must outlive the object.
  explicit FilePages(const MapFile& mapping);

  // Gives back those pages that lie wholly between `begin` and `end`. These may lie anywhere: other
  // memory keeps its bytes.
  void GiveBack(const uint8_t* begin, const uint8_t* end) const;

 private:
  const uint8_t* begin_ = nullptr;
  const uint8_t* end_ = nullptr;
};

}  // namespace Quill
