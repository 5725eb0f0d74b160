// SPDX-License-Identifier: Apache-2.0

#include <ziparchive/zip_archive.h>

#include <iterator>
#include <memory>
#include <set>

#include <quillon/apk.h>
#include <quillon/base64.h>
#include <quillon/system.h>

#include "findings/acceptance.h"
#include "findings/refusal.h"
#include "jar/entry_digest.h"
#include "jar/signature_file.h"
#include "util/log.h"

namespace Quill {
namespace {

// libziparchive's codes for a name that is not in the archive, and for a name that no archive can
// have: an empty one, or one longer than 65,535 bytes. Its public header has no names for them.
constexpr int32_t kEntryNotFound = -7;
constexpr int32_t kInvalidEntryName = -10;

}  // namespace

bool Apk::InitCertSf() {
  // Deliberate: of several signature files only the first, in the archive's order, is used.
  ZipEntry entry;
  std::string name;
  void* cookie = nullptr;
  if (StartIteration(&cookie, "META-INF/", ".SF") != 0) {
    return Refuse(Reason::kJarNoSignatureFile);
  }
  const std::unique_ptr<void, void (*)(void*)> iteration(cookie, ::EndIteration);
  std::vector<uint8_t> signatureFile;
  if (Next(cookie, &entry, name) != 0) return Refuse(Reason::kJarNoSignatureFile);
  if (Extract(&entry, signatureFile) != 0) {
    return Refuse(Reason::kJarSignatureFileMalformed, name);
  }
  if (!certSf_.load({signatureFile.begin(), signatureFile.end()})) {
    return Refuse(Reason::kJarSignatureFileMalformed, name);
  }
  if (!ReadOnlyFS(fd_) && HasRollbackProtection(certSf_)) return false;

  const std::string stem = name.substr(0, name.rfind('.') + 1);
  SignatureBlock block;
  if (ExtractByName(stem + "RSA", block.bytes) != 0 || block.bytes.empty()) {
    block.isDsa = true;
    const std::string dsaName = stem + "DSA";
    if (ExtractByName(dsaName, block.bytes) != 0 || block.bytes.empty()) {
      QUILL_LOGE("Can't extract DSA certificate: %s\n", dsaName.c_str());
      const bool isEc = IsRecording() && FindEntry(stem + "EC", &entry) == 0;
      return Refuse(isEc ? Reason::kJarEcKey : Reason::kJarNoBlock, stem);
    }
  }
  return VerifySignatureFile(block, signatureFile, name, manufacturerKey_);
}

bool Apk::ValidateManifest(const std::vector<uint8_t>& manifestBytes) {
  if (!certSf_) {
    QUILL_LOGE("Can't validate manifest. Bad SF file.\n");
    return Refuse(Reason::kJarSignatureFileMalformed);
  }
  const ManifestDigest digest = FindManifestDigest(certSf_);
  if (!digest.value.empty() && VerifyData(digest.name, digest.value, manifestBytes)) return true;
  QUILL_LOGE("Can't validate manifest.\n");
  return RefuseDigest(Reason::kJarManifestMismatch, digest.name, digest.name, digest.value,
                      manifestBytes);
}

bool Apk::VerifyFileHash(const std::string& name) {
  ZipEntry entry;
  const int32_t result = FindEntry(name, &entry);
  if (result == kEntryNotFound || result == kInvalidEntryName) return true;
  if (result != 0) {
    QUILL_LOGE("verifyFileHashImpl: Can't extract entry file in APK: %s\n", name.c_str());
    return Refuse(Reason::kJarEntryUnreadable, name);
  }
  return VerifyFileHashImpl(name, &entry);
}

bool Apk::VerifyFileHash(const std::string& name, ZipEntry* entry) {
  return VerifyFileHashImpl(name, entry);
}

bool Apk::VerifyFileHash(const std::string& name, const std::string& path) {
  return VerifyFileHashImpl<const std::string&>(name, path);
}

template <typename Source>
bool Apk::VerifyFileHashImpl(const std::string& name, Source source) {
  const auto listed = entryDigests_.find(name);
  if (listed == entryDigests_.end() && signatureScheme_ == ApkSignatureScheme::kJar) {
    if (CanSkipValidation(name)) return true;
    QUILL_LOGE("verifyFileHashImpl: Can't find file in %s: %s\n", kMANIFEST_MF, name.c_str());
    return Refuse(Reason::kJarEntryUnlisted, name);
  }
  std::vector<uint8_t> data;
  if (GetContents(source, data) != 0) {
    QUILL_LOGE("verifyFileHashImpl: Can't extract entry file in APK: %s\n", name.c_str());
    return Refuse(Reason::kJarEntryUnreadable, name);
  }
  if (listed != entryDigests_.end()) {
    const auto& [digestName, digestValue] = listed->second;
    const std::vector<uint8_t> expected = Base64Decode(digestValue);
    if (VerifyData(digestName, expected, data)) return true;
    QUILL_LOGI("verifyFileHashImpl: Not verified file from manifest: %s\n", name.c_str());
    return RefuseDigest(Reason::kJarEntryMismatch, name, digestName, expected, data);
  }
  // The v2 or v3 signature covers the archive's entries. So the data only have to equal the entry
  // of that name.
  std::vector<uint8_t> named;
  if (ExtractByName(name, named) != 0) {
    QUILL_LOGE("verifyFileHashImpl: Can't extract base file in APK: %s\n", name.c_str());
    return Refuse(Reason::kJarEntryUnreadable, name);
  }
  if (data != named) {
    QUILL_LOGI("verifyFileHashImpl: Not verified file in case empty manifest: %s\n", name.c_str());
    return Refuse(Reason::kJarEntryDiffers, name);
  }
  return true;
}

bool Apk::CanSkipValidation(const std::string& name) {
  static const std::string names[] = {
      "META-INF/CERT.RSA",    "META-INF/ANDROIDD.RSA", "META-INF/SECUREST.RSA", "META-INF/CERT.SF",
      "META-INF/ANDROIDD.SF", "META-INF/SECUREST.SF",  "META-INF/MANIFEST.MF"};
  static const std::set<std::string> skipped(std::begin(names), std::end(names));
  return skipped.count(name) != 0;
}

bool Apk::VerifyData(const std::string& digestName, const std::vector<uint8_t>& expected,
                     const std::vector<uint8_t>& data) {
  return MatchesDigest(digestName, expected, data);
}

}  // namespace Quill
