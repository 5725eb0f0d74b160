#pragma once

#include <ostream>
#include <vector>

#include "apk/apk.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_file.h"
#include "tests/support/wire.h"

namespace Quill {

// What a caller learns about a package.
struct PackageOutcome {
  bool isGood;
  int scheme;
  ByteVector key;
  std::vector<LogLine> lines;

  bool operator==(const PackageOutcome& other) const {
    return isGood == other.isGood && scheme == other.scheme && key == other.key &&
           lines == other.lines;
  }
};

inline std::ostream& operator<<(std::ostream& out, const PackageOutcome& outcome) {
  out << (outcome.isGood ? "good" : "refused") << ", v" << outcome.scheme << ", "
      << Hex(outcome.key);
  for (const LogLine& line : outcome.lines) out << "\n" << line;
  return out;
}

// The package lies in a memory file.
inline PackageOutcome OpenPackage(const ByteVector& package) {
  LogCapture log;
  const Fd file = MemoryFile(package);
  Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
  const bool isGood = apk.IsGoodApk();
  return {isGood, static_cast<int>(apk.GetApkSignatureSchemeVersion()), apk.GetManufacturerKey(),
          log.Take()};
}

}  // namespace Quill
