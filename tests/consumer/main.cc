// SPDX-License-Identifier: Apache-2.0

// A program outside this repository. It sees the installed headers and library, and headers of its
// own.
#include <cstdio>

#include "all_headers.h"  // by run.sh: each installed header

// usage: consumer PACKAGE. Exit status 0 when the package verifies under scheme v3.
int main(int argc, char** argv) {
  const auto file = argc == 2 ? Quill::OpenFileRO(argv[1]) : nullptr;
  if (file == nullptr) return 2;

  Quill::Apk apk(file->GetFd(), /*ignoreHalyxFilter=*/true);
  const bool good = apk.IsGoodApk();
  const std::string key = Base64Encode(ComputeSHA256Digest(apk.GetManufacturerKey()));
  std::printf("%s scheme %d key %s\n", apk.GetPackageName().c_str(),
              static_cast<int>(apk.GetApkSignatureSchemeVersion()), key.c_str());
  return good && apk.GetApkSignatureSchemeVersion() == Quill::ApkSignatureScheme::kV3 ? 0 : 1;
}
