// SPDX-License-Identifier: Apache-2.0

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include <quillon/apk.h>
#include <quillon/certificate.h>
#include <quillon/entry_points.h>
#include <quillon/file_name.h>
#include <quillon/signing.h>
#include <quillon/tarn.h>

#include "findings/steps.h"
#include "util/log.h"

namespace {

using Quill::Apk;

// Logs when an entry point starts and ends, and its arguments.
class Trace {
 public:
  explicit Trace(const char* name) : name_(name) { QUILL_LOGI("<TARN>: Enter to %s\n", name_); }
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;
  ~Trace() { QUILL_LOGI("<TARN>: Exit from %s\n", name_); }

  void Describe(const std::string& text) const {
    QUILL_LOGI("<TARN>: Enter %s %s\n", name_, text.c_str());
  }
  void Describe(const char* label, int fd, const std::string& fileName) const {
    Describe(label + std::to_string(fd) + " " + fileName);
  }
  void Describe(const char* label, int fd) const { Describe(label, fd, GetUnifyFilenameByFd(fd)); }

 private:
  const char* name_;
};

void ReportIntegrity() {
  uint32_t value = 0;
  const uint32_t result = TarnTaskGetIntegrity(0, &value);
  if (result != TARN_OK) {
    QUILL_LOGE("TARN can't read current integrity: 0x%x", result);
  } else {
    QUILL_LOGI("TARN current integrity: 0x%x", value);
  }
}

uint32_t EditAndNote(int fd) {
  const uint32_t result = TarnEditFd(fd);
  Quill::NoteStep(Quill::StepKind::kEdit, fd, Quill::StepEnd::kAnswered, result);
  return result;
}

}  // namespace

void RunOEMFuncForProvisionBootArt(int apkFd, int artFd) {
  const Trace trace("ProvisionBootArt");
  trace.Describe("APK: ", apkFd);
  trace.Describe("ART: ", artFd);
  if (apkFd < 0 || artFd < 0) {
    QUILL_LOGE("TARN incorrect arguments: apk_fd=%d, target_fd=%d", apkFd, artFd);
    ReportIntegrity();
    return;
  }
  if (TarnSign(apkFd, artFd) != TARN_OK) {
    QUILL_LOGE("TARN can't sign a file: %d, error: %s", artFd, strerror(errno));
    ReportIntegrity();
  }
}

void RunOEMFuncForProvisionOat(int apkFd, int oatFd, int vdexFd) {
  const Trace trace("ProvisionOat");
  trace.Describe("APK: ", apkFd);
  trace.Describe("OAT: ", oatFd);
  trace.Describe("VDEX: ", vdexFd);
  Apk apk(apkFd);
  if (TarnSign(apk, apkFd, oatFd) != TARN_OK) {
    QUILL_LOGE("TARN can't sign a file: apk_fd=%d, oat_fd=%d, error: %s", apkFd, oatFd,
               strerror(errno));
    ReportIntegrity();
  }
  if (TarnSign(apk, apkFd, vdexFd) != TARN_OK) {
    QUILL_LOGE("TARN can't sign a file: apk_fd=%d, vdex_fd=%d, error: %s", apkFd, vdexFd,
               strerror(errno));
    ReportIntegrity();
  }
  HxSign(apk, apkFd, oatFd);
  HxSign(apk, apkFd, vdexFd);
}

void RunOEMFuncForStartProvisionOat(int oatFd, int vdexFd) {
  const Trace trace("StartProvisionOat");
  trace.Describe("OAT: " + std::to_string(oatFd) + " VDEX: " + std::to_string(vdexFd));
  // Deliberate: VDEX before OAT; signing takes OAT first.
  if (const uint32_t result = EditAndNote(vdexFd); result != TARN_OK) {
    const int error = errno;
    QUILL_LOGE("TARN can't edit a VDEX file fd=%d (result=%x, errno %d: %s).\n", vdexFd, result,
               error, strerror(error));
  }
  if (const uint32_t result = EditAndNote(oatFd); result != TARN_OK) {
    const int error = errno;
    QUILL_LOGE("TARN can't edit an OAT file fd=%d (result=%x, errno %d: %s).\n", oatFd, result,
               error, strerror(error));
  }
}

void RunOEMFuncForApkSigner(int apkFd, const char* apkPath, int flag) {
  const Trace trace("ApkSigner");
  trace.Describe("APK: ", apkFd, GetUnifyFilenameByPath(apkPath != nullptr ? apkPath : ""));
  Apk apk(apkFd, /*ignoreHalyxFilter=*/(flag & 1) != 0);
  TarnSignJni(apk, apkFd, nullptr);
  TarnSign(apk, apkFd, apkFd);
  HxSign(apk, apkFd, apkFd);
}
