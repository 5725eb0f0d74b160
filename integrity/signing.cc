// SPDX-License-Identifier: Apache-2.0

#include <ziparchive/zip_archive.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <quillon/apk.h>
#include <quillon/file.h>
#include <quillon/file_name.h>
#include <quillon/signing.h>
#include <quillon/strings.h>
#include <quillon/tarn.h>

#include "findings/steps.h"
#include "integrity/file_signing.h"
#include "util/errno_keeper.h"
#include "util/log.h"
#include "util/text.h"

namespace {

using Quill::Apk;
using Quill::SavedErrno;

struct LibraryFolder {
  std::string_view entryPrefix;
  std::string_view installed;
};

// Matched in order: "lib/armeabi" is a prefix of two others and must be last.
constexpr LibraryFolder kLibraryFolders[] = {
    {"lib/armeabi-v7a", "lib/arm"},
    {"lib/armeabi-v8a", "lib/arm64"},
    {"lib/arm64-v8a", "lib/arm64"},
    {"lib/armeabi", "lib/arm"},
};

// Returns the path of the installed library for an entry, relative to the package's folder. Empty
// for another instruction set, and for a name with an empty, "." or ".." component: such a name
// could leave the folder, or give one file many names.
std::string InstalledLibrary(const std::string& entryName) {
  for (const std::string& component : SplitString(entryName, '/')) {
    if (component.empty() || component == "." || component == "..") return {};
  }
  for (const LibraryFolder& folder : kLibraryFolders) {
    if (!Quill::StartsWith(entryName, folder.entryPrefix)) continue;
    return std::string(folder.installed) + entryName.substr(folder.entryPrefix.size());
  }
  return {};
}

// Returns the path up to and including its last "/"; empty when it has none.
std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

void SignLibrary(Apk& apk, const std::string& path) {
  const auto library = Quill::OpenFileRO(path);
  if (!library) {
    const int error = errno;
    if (error != ENOENT) {
      QUILL_LOGE("File %s is not opened, errno %d: %s.\n", path.c_str(), error, strerror(error));
      Quill::NoteStep(Quill::StepKind::kLabel, path, Quill::StepEnd::kNotOpened,
                      static_cast<uint32_t>(error));
    }
    return;
  }
  TarnSignOat(apk, library->GetFd());
}

}  // namespace

uint32_t TarnSign(Apk& apk, int zipFd, int fd) {
  QUILL_LOGI("TarnSign starts: zip_fd = %d, fd = %d.\n", zipFd, fd);
  errno = 0;  // rejecting a package sets none
  if (!apk.IsGoodZip()) {
    const SavedErrno saved;
    QUILL_LOGE("Zip archive is not valid for fd=%d\n", zipFd);
    Quill::NoteStep(Quill::StepKind::kLabel, fd, Quill::StepEnd::kNoArchive);
    return TARN_FAILED;
  }
  const uint32_t result = TarnSignOat(apk, fd);
  const SavedErrno saved;
  QUILL_LOGI("TarnSign finished: %u.\n", result);
  return result;
}

uint32_t TarnSign(int zipFd, int fd) {
  std::optional<SavedErrno> failure;  // declared before `apk`, so destroyed after it
  Apk apk(zipFd);
  const uint32_t result = TarnSign(apk, zipFd, fd);
  failure.emplace();
  return result;
}

uint32_t TarnSignJni(Apk& apk, int fd, const char* /*unused*/) {
  if (!Quill::TakesPartInHalyx(apk)) {
    TarnCloseFd(fd);
    return TARN_OK;
  }
  QUILL_LOGI("TarnSignJni starts: %d.\n", fd);
  if (!apk.IsGoodApk()) {
    QUILL_LOGE("TarnSignJni: malformed apk: %s\n", GetUnifyFilenameByPath(apk.GetPath()).c_str());
    return TARN_FAILED;
  }

  const std::string folder = FolderOf(apk.GetPath());
  void* cookie = nullptr;
  apk.StartIteration(&cookie, "lib/", ".so");
  const std::unique_ptr<void, void (*)(void*)> iteration(cookie, EndIteration);
  ZipEntry entry;
  std::string entryName;
  while (apk.Next(cookie, &entry, entryName) == 0) {
    const std::string library = InstalledLibrary(entryName);
    if (!library.empty()) SignLibrary(apk, folder + library);
  }
  QUILL_LOGI("TarnSignJni finished: %u.\n", TARN_OK);
  return TARN_OK;
}
