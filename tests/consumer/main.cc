// A program outside this repository: sees the installed headers and library only.
#include <cstdio>

#include "apk/apk.h"
#include "integrity/certificate.h"
#include "integrity/entry_points.h"
#include "integrity/signing.h"
#include "integrity/tarn.h"
#include "jar/manifest_mf.h"
#include "util/base64.h"
#include "util/digest.h"
#include "util/file.h"
#include "util/file_name.h"
#include "util/strings.h"
#include "util/system.h"

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
