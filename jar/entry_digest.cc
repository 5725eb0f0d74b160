// SPDX-License-Identifier: Apache-2.0

#include "jar/entry_digest.h"

#include <optional>

#include <quillon/digest.h>

#include "findings/acceptance.h"
#include "findings/refusal.h"
#include "util/log.h"
#include "util/text.h"

namespace Quill {
namespace {

// Computes the digest that an attribute such as "SHA-256-Digest" holds. Returns nullopt for one of
// an unsupported kind.
std::optional<std::vector<uint8_t>> ComputeDigest(const std::string& digestName,
                                                  const std::vector<uint8_t>& data) {
  if (digestName == "SHA1-Digest") return ComputeSHA1Digest(data);
  if (digestName == "SHA-256-Digest") return ComputeSHA256Digest(data);
  return std::nullopt;
}

}  // namespace

EntryDigests CollectEntryDigests(const ManifestMf& manifest) {
  EntryDigests digests;
  for (const ManifestMf::Section& section : manifest.getSections()) {
    std::string entryName;
    std::pair<std::string, std::string> digest;
    for (const auto& [key, value] : section) {
      if (key == "Name") entryName = value;
      // Deliberate: of several digests the one whose name sorts last counts, not the strongest.
      if (EndsWith(key, "-Digest")) digest = {key, value};
    }
    if (!entryName.empty() && !digest.first.empty() && !digest.second.empty()) {
      digests[entryName] = std::move(digest);
    }
  }
  return digests;
}

bool MatchesDigest(const std::string& digestName, const std::vector<uint8_t>& expected,
                   const std::vector<uint8_t>& data) {
  const std::optional<std::vector<uint8_t>> found = ComputeDigest(digestName, data);
  if (digestName == "SHA1-Digest") Warn(Warning::kWeakDigest, 0, "SHA-1");
  if (found) return *found == expected;
  QUILL_LOGE("verifyData: Unsupported digest type: %s\n", digestName.c_str());
  return Refuse(Reason::kJarDigestUnsupported, digestName);
}

bool RefuseDigest(Reason reason, std::string_view name, const std::string& digestName,
                  const std::vector<uint8_t>& expected, const std::vector<uint8_t>& data) {
  if (!IsRecording()) return Refuse(reason, name);
  const std::vector<uint8_t> found =
      ComputeDigest(digestName, data).value_or(std::vector<uint8_t>());
  return Refuse(reason, {0, name, &expected, &found});
}

}  // namespace Quill
