// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <nlohmann/json_fwd.hpp>

#include <quillon/file.h>

namespace Quill::Tool {

// Compares what two packages hold besides their signatures, and returns the members "sameContent"
// to "entries" of the object that docs/schema/diff.json describes. When one of them cannot be read,
// only "obstacle", a text, and "in", "a" or "b".
//
// Entries whose stored bytes are the same are not extracted. Of others, the digests of the
// extracted bytes are compared; no checksum of the archive counts. Memory does not grow with the
// sizes of entries. A file that shrinks meanwhile raises SIGBUS.
[[nodiscard]] nlohmann::ordered_json CompareContents(std::shared_ptr<MapFile> a,
                                                     std::shared_ptr<MapFile> b);

}  // namespace Quill::Tool
