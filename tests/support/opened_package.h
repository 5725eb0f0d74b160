// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include <quillon/apk.h>

#include "findings/recorder.h"
#include "tests/support/log_capture.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"

namespace Quill {

// The path of a MemoryFile.
inline const std::string kMemoryPath = "/memfd:quillon-test (deleted)";

// What a caller learns about a package in memory. No LogCapture may live beside it.
struct OpenedPackage {
  explicit OpenedPackage(const ByteVector& bytes, bool ignoreHalyxFilter = true) {
    const Fd file = MemoryFile(bytes);
    LogCapture capture;
    const FindingsRecorder recorder;
    Apk apk(file.GetFd(), ignoreHalyxFilter);
    isGoodZip = apk.IsGoodZip();
    isApk = apk.IsApk();
    static_cast<void>(apk.IsGoodApk());  // a second check would log its lines again
    isGoodApk = apk.IsGoodApk();
    isHalyx = apk.IsHalyxPermissionRequired();
    scheme = static_cast<int>(apk.GetApkSignatureSchemeVersion());
    packageName = apk.GetPackageName();
    key = apk.GetManufacturerKey();
    log = capture.Take();
    refusals = recorder.Get().refusals;
    EXPECT_TRUE(isGoodApk || !refusals.empty()) << "a refusal has a reason\n" << log;
  }

  auto Facts() const {
    return std::tie(isGoodZip, isApk, isGoodApk, isHalyx, scheme, packageName, key, log);
  }
  bool operator==(const OpenedPackage& other) const { return Facts() == other.Facts(); }

  bool isGoodZip, isApk, isGoodApk, isHalyx;
  int scheme;  // 0: none was verified
  std::string packageName;
  ByteVector key;
  std::string log;
  std::vector<Refusal> refusals;
};

}  // namespace Quill
