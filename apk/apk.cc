// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <unistd.h>
#include <ziparchive/zip_archive.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <quillon/apk.h>
#include <quillon/file_name.h>

#include "findings/refusal.h"
#include "jar/entry_digest.h"
#include "util/log.h"

namespace Quill {

const char* const Apk::kMANIFEST_MF = "META-INF/MANIFEST.MF";

// Delegating makes the destructor close the archive even if Init throws.
Apk::Apk(const char* path) : Apk() { Init(-1, path); }

Apk::Apk(int fd) : Apk() { Init(fd, nullptr); }

Apk::Apk(int fd, bool ignoreHalyxFilter) : Apk() {
  ignoreHalyxFilter_ = ignoreHalyxFilter;
  Init(fd, nullptr);
}

Apk::Apk(int fd, const char* path) : Apk() { Init(fd, path); }

Apk::~Apk() {
  if (archive_ != nullptr) CloseArchive(archive_);
}

void Apk::Init(int32_t fd, const char* path) {
  fd_ = fd;
  if (!OpenArchive(path)) return;
  isGoodZip_ = true;

  std::vector<uint8_t> androidManifest;
  const int32_t androidManifestResult = ExtractByName("AndroidManifest.xml", androidManifest);
  if (androidManifestResult != 0) {
    QUILL_LOGI("Can't extract Android Manifest: %s\n", ErrorCodeString(androidManifestResult));
    Refuse(Reason::kManifestUnreadable, ErrorCodeString(androidManifestResult));
    return;
  }
  isApk_ = true;

  std::vector<uint8_t> manifestBytes;
  const int32_t manifestResult = ExtractByName(kMANIFEST_MF, manifestBytes);
  if (manifestResult != 0) manifestBytes.clear();
  if (!manifest_.load({manifestBytes.begin(), manifestBytes.end()})) {
    QUILL_LOGE("Can't load manifest: size=%zu\n", manifestBytes.size());
    Refuse(Reason::kJarManifestMalformed);
    return;
  }
  if (!ParseAndroidManifest(std::move(androidManifest))) {
    QUILL_LOGE("Can't process Android Manifest.\n");
    Refuse(Reason::kManifestMalformed);
    return;
  }
  if (!ForcedIgnoreHalyxFilter() && !halyxPermissionRequired_) {
    QUILL_LOGI("HALYX permissions are absent.\n");
    Refuse(Reason::kOutsideHalyx);
    return;
  }
  if (!VerifySignature(manifestResult, manifestBytes)) return;
  entryDigests_ = CollectEntryDigests(manifest_);
  verified_ = true;
}

bool Apk::OpenArchive(const char* path) {
  if (fd_ < 0 && path == nullptr) {
    QUILL_LOGE("Can't initialize Apk: need valid file descriptor or filename\n");
    return false;
  }
  bool ownsFd = false;
  if (fd_ == -1) {
    fd_ = open(path, O_RDONLY);
    if (fd_ < 0) {
      QUILL_LOGE("open('%s') failed: %s\n", path, strerror(errno));
      return false;
    }
    ownsFd = true;
  }
  int32_t result = 0;
  try {
    path_ = path != nullptr ? path : GetFilenameByFd(fd_);
    result = OpenArchiveFd(fd_, path_.c_str(), &archive_, ownsFd);
  } catch (...) {
    if (ownsFd && archive_ == nullptr) close(fd_);  // an archive closes it itself
    throw;
  }
  if (result != 0) {
    QUILL_LOGE("OpenArchiveFd(%d) [file: %s] returned: %d: %s\n", fd_,
               GetUnifyFilenameByPath(path_).c_str(), result, ErrorCodeString(result));
    if (archive_ != nullptr) CloseArchive(archive_);
    archive_ = nullptr;
    return Refuse(Reason::kNoArchive, ErrorCodeString(result));
  }
  return true;
}

bool Apk::VerifySignature(int32_t manifestResult, const std::vector<uint8_t>& manifestBytes) {
  switch (VerifyApkSignature(fd_, path_, signatureScheme_, manufacturerKey_)) {
    case 0:
      contentsConfirmed_ = true;
      return true;
    case 1:
      return false;
    default:
      break;
  }

  QUILL_LOGI("Fallback to APK V1 signature. APK: %s\n", GetUnifyFilenameByPath(path_).c_str());
  signatureScheme_ = ApkSignatureScheme::kJar;
  if (manifestResult != 0) {
    QUILL_LOGE("Can't extract manifest: %s\n", ErrorCodeString(manifestResult));
    return Refuse(Reason::kJarNoManifest, ErrorCodeString(manifestResult));
  }
  if (!InitCertSf()) return false;
  if (!ValidateManifest(manifestBytes)) {
    QUILL_LOGE("Can't validate manifest.\n");
    return false;
  }
  return true;
}

bool Apk::IsGoodApk() {
  if (!verified_) return false;
  if (contentsConfirmed_) return true;

  if (!VerifyFileHash("classes.dex")) {
    QUILL_LOGE("Integrity not confirmed: classes.dex\n");
    verified_ = false;
  }
  contentsConfirmed_ = true;
  return verified_;
}

bool Apk::IsGoodZip() const { return isGoodZip_; }

bool Apk::IsApk() const { return isApk_; }

const std::string& Apk::GetPackageName() const { return packageName_; }

const std::vector<uint8_t>& Apk::GetManufacturerKey() const { return manufacturerKey_; }

const std::string& Apk::GetPath() const { return path_; }

int32_t Apk::GetFd() const { return fd_; }

ApkSignatureScheme Apk::GetApkSignatureSchemeVersion() const { return signatureScheme_; }

bool Apk::IsHalyxPermissionRequired() const { return halyxPermissionRequired_; }

}  // namespace Quill
