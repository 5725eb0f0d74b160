#include <ziparchive/zip_archive.h>

#include <set>

#include "apk/apk.h"
#include "util/base64.h"
#include "util/digest.h"
#include "util/log.h"

namespace Quill {
namespace {

// libziparchive's codes for a name that the archive does not hold, and for one that no archive can
// hold, empty or longer than 65,535 bytes; its public header names no codes.
constexpr int32_t kEntryNotFound = -7;
constexpr int32_t kInvalidEntryName = -10;

}  // namespace

bool Apk::VerifyFileHash(const std::string& name) {
  ZipEntry entry;
  const int32_t result = FindEntry(name, &entry);
  if (result == kEntryNotFound || result == kInvalidEntryName) return true;
  if (result != 0) {
    QUILL_LOGE("verifyFileHashImpl: Can't extract entry file in APK: %s\n", name.c_str());
    return false;
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
    return false;
  }
  std::vector<uint8_t> data;
  if (GetContents(source, data) != 0) {
    QUILL_LOGE("verifyFileHashImpl: Can't extract entry file in APK: %s\n", name.c_str());
    return false;
  }
  if (listed != entryDigests_.end()) {
    const auto& [digestName, digestValue] = listed->second;
    if (VerifyData(digestName, Base64Decode(digestValue), data)) return true;
    QUILL_LOGI("verifyFileHashImpl: Not verified file from manifest: %s\n", name.c_str());
    return false;
  }
  // The whole-file signature covers the archive; what is left to show is that these are the bytes
  // of the entry that the name resolves to.
  std::vector<uint8_t> named;
  if (ExtractByName(name, named) != 0) {
    QUILL_LOGE("verifyFileHashImpl: Can't extract base file in APK: %s\n", name.c_str());
    return false;
  }
  if (data != named) {
    QUILL_LOGI("verifyFileHashImpl: Not verified file in case empty manifest: %s\n", name.c_str());
    return false;
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
  if (digestName == "SHA1-Digest") return ComputeSHA1Digest(data) == expected;
  if (digestName == "SHA-256-Digest") return ComputeSHA256Digest(data) == expected;
  QUILL_LOGE("verifyData: Unsupported digest type: %s\n", digestName.c_str());
  return false;
}

}  // namespace Quill
