// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <memory>
#include <string_view>

#include <quillon/apk.h>
#include <quillon/file.h>
#include <quillon/file_name.h>

#include "findings/refusal.h"
#include "signing_block/apk_package.h"
#include "util/file_pages.h"
#include "util/log.h"

namespace Quill {
namespace {

enum Outcome : int32_t { kVerified = 0, kRefused = 1, kNoSigningBlock = 2 };

// Returns the first piece between commas that names v2 or v3; empty when there is none. Pieces are
// not copied: there can be as many as the signature file has bytes.
std::string_view FindBlockScheme(std::string_view schemes) {
  while (!schemes.empty()) {
    const std::string_view scheme = schemes.substr(0, schemes.find(','));
    // Deliberate: compared untrimmed, so "1, 2" claims nothing.
    if (scheme == "2" || scheme == "3") return scheme;
    schemes.remove_prefix(std::min(scheme.size() + 1, schemes.size()));
  }
  return {};
}

}  // namespace

int32_t Apk::VerifyApkSignature(int32_t fd, const std::string& path, ApkSignatureScheme& scheme,
                                std::vector<uint8_t>& publicKey) {
  const std::string name = GetUnifyFilenameByPath(path);
  const std::shared_ptr<MapFile> mapping = MapFileRO(fd);
  if (!mapping) {
    QUILL_LOGE("Can't map file: %s\n", name.c_str());
    Refuse(Reason::kNotMapped);
    // Deliberate: JAR verification reads through its own descriptor and may still succeed.
    return kNoSigningBlock;
  }
  ApkPackage package(mapping, FilePages(*mapping));
  if (!package.ParseApkPackage()) return kNoSigningBlock;

  scheme = static_cast<ApkSignatureScheme>(package.GetVersionScheme());
  const std::string versionName = package.GetVersionName();
  QUILL_LOGI("Use APK %s signature. APK: %s\n", versionName.c_str(), name.c_str());
  if (!package.VerifyApkPackage()) {
    QUILL_LOGE("Can't verify signature APK %s: %s\n", versionName.c_str(), name.c_str());
    return kRefused;
  }
  if (!package.GetMainPublicKey(publicKey)) {
    QUILL_LOGE("Can't obtain public key APK %s: %s\n", versionName.c_str(), name.c_str());
    return kRefused;
  }
  return kVerified;
}

bool Apk::HasRollbackProtection(const ManifestMf& signatureFile) {
  for (const ManifestMf::Section& section : signatureFile.getSections()) {
    const auto claim = section.find("X-Android-APK-Signed");
    if (claim == section.end()) continue;
    const std::string_view scheme = FindBlockScheme(claim->second);
    if (scheme.empty()) continue;
    QUILL_LOGI(
        "This APK was supposed to be signed with APK Signature Scheme v%s, but no such signature was found.\n",
        std::string(scheme).c_str());
    Refuse(Reason::kJarClaimsScheme, scheme);
    return true;
  }
  return false;
}

}  // namespace Quill
