// SPDX-License-Identifier: Apache-2.0

// Verifies packages one after the other in this process. What `quillon verify` takes above that is
// its own cost.
// usage: in_process FILE...
#include <android/log.h>

#include <cstdio>

#include <quillon/apk.h>
#include <quillon/file.h>

int main(int argc, char** argv) {
  __android_log_set_logger([](const auto*, auto...) {});
  for (int i = 1; i < argc; ++i) {
    const auto file = Quill::OpenFileRO(argv[i]);
    if (file == nullptr) return 1;
    Quill::Apk apk(file->GetFd(), /*ignoreHalyxFilter=*/true);
    if (!apk.IsGoodApk()) return 1;
    std::puts(apk.GetPackageName().c_str());
  }
  return 0;
}
