// SPDX-License-Identifier: Apache-2.0

#include "jar/entry_digest.h"

#include <quillon/digest.h>

#include "findings/acceptance.h"
#include "findings/refusal.h"
#include "util/log.h"
#include "util/text.h"

namespace Quill {

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
  if (digestName == "SHA1-Digest") {
    Warn(Warning::kWeakDigest, 0, "SHA-1");
    return ComputeSHA1Digest(data) == expected;
  }
  if (digestName == "SHA-256-Digest") return ComputeSHA256Digest(data) == expected;
  QUILL_LOGE("verifyData: Unsupported digest type: %s\n", digestName.c_str());
  return Refuse(Reason::kJarDigestUnsupported, digestName);
}

bool RefuseDigest(Reason reason, std::string_view name, const std::string& digestName,
                  const std::vector<uint8_t>& expected, const std::vector<uint8_t>& data) {
  if (!IsRecording()) return Refuse(reason, name);
  std::vector<uint8_t> found;
  if (digestName == "SHA1-Digest") found = ComputeSHA1Digest(data);
  if (digestName == "SHA-256-Digest") found = ComputeSHA256Digest(data);
  return Refuse(reason, {0, name, &expected, &found});
}

}  // namespace Quill
