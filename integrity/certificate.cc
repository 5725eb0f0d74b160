// SPDX-License-Identifier: Apache-2.0

#include <sys/xattr.h>

#include <cstdint>
#include <string>
#include <vector>

#include <quillon/apk.h>
#include <quillon/certificate.h>
#include <quillon/digest.h>
#include <quillon/file_name.h>
#include <quillon/strings.h>

#include "findings/steps.h"
#include "integrity/libhx.h"
#include "util/log.h"

namespace {

using Quill::Apk;

constexpr size_t kJarCertificateSize = 128;

// Returns a chain of SHA-256 digests: the first of the path, each other of the one before it.
std::vector<uint8_t> JarCertificate(const std::string& path) {
  std::vector<uint8_t> certificate;
  std::vector<uint8_t> link = StringToVector(path);
  while (certificate.size() < kJarCertificateSize) {
    link = ComputeSHA256Digest(link);
    certificate.insert(certificate.end(), link.begin(), link.end());
  }
  return certificate;
}

void ReportMissingTarget(int fd) {
  if (GetFilenameByFd(fd).empty()) QUILL_LOGE("Can't get oat location from fd=%d\n", fd);
}

void Store(int fd, const std::string& identity, const std::vector<uint8_t>& certificate) {
  const int result = HxNewCertificate(fd, identity.c_str(), certificate.data(), certificate.size());
  Quill::NoteStep(Quill::StepKind::kCertify, fd, Quill::StepEnd::kAnswered,
                  static_cast<uint32_t>(result));
  if (result == 0 || result == kHxAlsoStored) {
    QUILL_LOGI("HxAddCertificate: HxNewCertificate return %d.\n", result);
  } else {
    QUILL_LOGE("HxAddCertificate: HxNewCertificate failed %d.\n", result);
  }
}

void CertifyForJar(int zipFd, int fd) {
  if (fgetxattr(zipFd, "user.hx", nullptr, 0) < 1) return;
  const std::string jarPath = GetFilenameByFd(zipFd);
  if (jarPath.empty()) {
    QUILL_LOGE("Can't get jar location from fd=%d\n", zipFd);
    return;
  }
  ReportMissingTarget(fd);
  QUILL_LOGI("HxAddCertificate: Call HxNewCertificate for JAR.\n");
  Store(fd, jarPath, JarCertificate(jarPath));
}

void CertifyForPackage(Apk& apk, int fd) {
  if (!apk.IsHalyxPermissionRequired()) return;
  if (!apk.IsGoodApk()) {
    QUILL_LOGE("Apk archive is not valid for fd=%d, path=%s\n", apk.GetFd(),
               GetUnifyFilenameByPath(apk.GetPath()).c_str());
    return;
  }
  ReportMissingTarget(fd);
  Store(fd, apk.GetPackageName(), apk.GetManufacturerKey());
}

}  // namespace

void HxSign(Apk& apk, int zipFd, int fd) {
  if (!apk.IsApk() && apk.IsGoodZip()) {
    CertifyForJar(zipFd, fd);
  } else {
    CertifyForPackage(apk, fd);
  }
}

void HxSign(int zipFd, int fd) {
  Apk apk(zipFd);
  HxSign(apk, zipFd, fd);
}
