// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <quillon/manifest_mf.h>

#include "findings/refusal.h"

namespace Quill {

// The digests in a JAR manifest, by entry name: the name of the attribute, such as
// "SHA-256-Digest", and its Base64 value.
using EntryDigests = std::map<std::string, std::pair<std::string, std::string>>;

// Collects one digest for each entry.
[[nodiscard]] EntryDigests CollectEntryDigests(const ManifestMf& manifest);

// Returns true when the digest of `data` is `expected`. `digestName` is "SHA1-Digest" or
// "SHA-256-Digest"; any other is false and logs one error line.
[[nodiscard]] bool MatchesDigest(const std::string& digestName,
                                 const std::vector<uint8_t>& expected,
                                 const std::vector<uint8_t>& data);

// Refuses an entry, or the manifest, whose digest is not `expected`. `name` is what the reason
// names. Returns false.
bool RefuseDigest(Reason reason, std::string_view name, const std::string& digestName,
                  const std::vector<uint8_t>& expected, const std::vector<uint8_t>& data);

}  // namespace Quill
