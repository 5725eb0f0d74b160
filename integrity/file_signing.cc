// SPDX-License-Identifier: Apache-2.0

#include "integrity/file_signing.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>

#include <quillon/file.h>
#include <quillon/tarn.h>

#include "crypto/hash.h"
#include "findings/steps.h"
#include "integrity/label_owner.h"
#include "util/errno_keeper.h"
#include "util/file_pages.h"
#include "util/log.h"
#include "util/nothrow.h"

// A function whose caller logs errno declares an empty std::optional<SavedErrno> first and fills it
// right after the system call. It is destroyed last, so no cleanup changes the caller's errno.

namespace {

using Quill::Apk;
using Quill::NoteStep;
using Quill::SavedErrno;
using Quill::StepEnd;
using Quill::StepKind;

enum class Origin { kPackage, kJar };

// Labels a file of that origin and logs a failure.
uint32_t SignAndReport(int fd, const std::vector<uint8_t>& hash, const std::vector<uint8_t>& extra,
                       Origin origin) {
  TarnExLabel* allocated = nullptr;
  if (const uint32_t result =
          TarnExLabelAlloc(TARN_SHA1, hash.data(), static_cast<uint16_t>(hash.size()), extra.data(),
                           static_cast<uint16_t>(extra.size()), &allocated);
      result != TARN_OK) {
    QUILL_LOGE("Can't allocate integrity label.\n");
    NoteStep(StepKind::kLabel, fd, StepEnd::kAnswered, result);
    return result;
  }
  const Quill::ExLabelOwner label(allocated);
  const uint32_t result = TarnSignFdEx(fd, label.get());
  NoteStep(StepKind::kLabel, fd, StepEnd::kAnswered, result);
  if (result != TARN_OK) {
    const SavedErrno saved;
    const int error = errno;
    if (origin == Origin::kPackage) {
      QUILL_LOGE("TARN can't sign a file (result=%x, errno %d: %s).\n", result, error,
                 strerror(error));
    } else {
      QUILL_LOGE("TARN can't sign a non-APK file (result=%x, errno %d: %s).\n", result, error,
                 strerror(error));
    }
  }
  return result;
}

uint32_t SignForPackage(Apk& apk, int fd) {
  std::optional<SavedErrno> failure;
  if (!Quill::TakesPartInHalyx(apk)) {
    QUILL_LOGI("HALYX permissions are absent.\n");
    TarnCloseFd(fd);
    NoteStep(StepKind::kLabel, fd, StepEnd::kOutsideHalyx);
    return TARN_OK;
  }
  QUILL_LOGI("TarnSignOat: Apk case.\n");
  if (!apk.IsGoodApk()) {
    NoteStep(StepKind::kLabel, fd, StepEnd::kPackageRefused);
    return TARN_FAILED;
  }

  std::vector<uint8_t> hash;
  if (!CalcHashFile(fd, 0, hash)) {
    failure.emplace();
    QUILL_LOGE("Can't calculate hash of file: %d.\n", fd);
    NoteStep(StepKind::kLabel, fd, StepEnd::kNotHashed);
    return TARN_FAILED;
  }
  const auto keyHash = Quill::MakeUniqueNoThrow<Quill::HashSHA256>();
  if (!keyHash) {
    // Deliberate: the first letter of "сreate" is Cyrillic, so that a search tells this line from
    // the one of CalcHashFile.
    QUILL_LOGE("Can't сreate hash object.\n");
    return TARN_FAILED;
  }
  const std::vector<uint8_t> keyDigest = keyHash->Digest(apk.GetManufacturerKey());
  const uint32_t result = SignAndReport(fd, hash, keyDigest, Origin::kPackage);
  failure.emplace();
  return result;
}

uint32_t SignForJar(Apk& apk, int fd) {
  std::optional<SavedErrno> failure;
  QUILL_LOGI("TarnSignOat: non-Apk (Jar) case\n");
  if (const uint32_t result = TarnVerifyFd(apk.GetFd()); result != TARN_OK) {
    failure.emplace();
    const int error = errno;
    QUILL_LOGI("TARN can't verify a file %d: %s/%s.\n", error, apk.GetPackageName().c_str(),
               strerror(error));
    NoteStep(StepKind::kLabel, fd, StepEnd::kJarNotVerified, result);
    return result;
  }

  std::vector<uint8_t> hash;
  if (!CalcHashFile(fd, 0, hash)) {
    QUILL_LOGE("Can't calculate hash of file: %d.\n", fd);
    NoteStep(StepKind::kLabel, fd, StepEnd::kNotHashed);
    // Deliberate: for a JAR, a file that cannot be hashed is skipped; for a package it is a
    // failure.
    return TARN_OK;
  }
  const uint32_t result = SignAndReport(fd, hash, /*extra=*/{}, Origin::kJar);
  failure.emplace();
  return result;
}

}  // namespace

bool Quill::TakesPartInHalyx(Apk& apk) {
  return apk.ForcedIgnoreHalyxFilter() || apk.IsHalyxPermissionRequired();
}

uint32_t TarnSignOat(Apk& apk, int fd) {
  return apk.IsApk() ? SignForPackage(apk, fd) : SignForJar(apk, fd);
}

bool CalcHashFile(int fd, int /*unused*/, std::vector<uint8_t>& out) {
  std::optional<SavedErrno> failure;
  const auto hash = Quill::Hash::CreateHashFromAlgoId(NID_sha1);
  if (!hash) {
    QUILL_LOGE("Can't create hash object.\n");
    return false;
  }
  const auto file = Quill::MapFileRO(fd);
  if (!file) {
    failure.emplace();
    QUILL_LOGE("Can't map file: %d\n", fd);
    return false;
  }
  // Pages that have been digested are given back, so that few of them stay in memory.
  constexpr uint64_t kPiece = 1 << 20;
  const Quill::FilePages pages(*file);
  const uint8_t* const end = file->Data() + file->Size();
  for (const uint8_t* piece = file->Data(); piece != end;) {
    const uint8_t* const next = piece + std::min(kPiece, static_cast<uint64_t>(end - piece));
    hash->Update(piece, static_cast<size_t>(next - piece));
    pages.GiveBack(piece, next);
    piece = next;
  }
  out = hash->Final();
  return true;
}
