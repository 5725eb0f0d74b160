// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <string>

#include <quillon/apk.h>
#include <quillon/file_name.h>
#include <quillon/signing.h>

#include "fuzz/fixed_keys.h"
#include "fuzz/fuzzing.h"
#include "simulator/simulator.h"
#include "tests/support/log_capture.h"
#include "tests/support/notation.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"

using namespace Quill;  // NOLINT(google-build-using-namespace)

namespace {

constexpr size_t kMostNames = 8;

// A folder of an installed package with libraries, and a file that is none of them.
struct Installed {
  Installed() {
    for (const char* name : {"lib/arm/libx.so", "lib/arm64/libx.so", "lib/arm/a/libx.so"}) {
      folder.Write(std::string("app/") + name, {'E', 'L', 'F'});
    }
    folder.Write("outside.so", {'E', 'L', 'F'});
    folder.Write("app/outside.so", {'E', 'L', 'F'});
    folder.Write("app/lib/outside.so", {'E', 'L', 'F'});
  }
  const TempFolder folder;
  const std::string app = folder.Path() + "/app/";
};

// Checks that a short name is made from the pieces of the path.
void CheckShortName(const std::string& path) {
  const std::string name = GetUnifyFilenameByPath(path);
  if (name == path) return;
  Require(path.rfind("/data/app/", 0) == 0, "only the name of an installed file is short");
  Require(name.size() < path.size(), "a short name is shorter");
  const std::string end = path.substr(path.rfind("==/") + 2);
  Require(name.size() >= end.size() && name.substr(name.size() - end.size()) == end,
          "the file name stays");
  Require(path.find(name.substr(0, name.size() - end.size())) != std::string::npos,
          "the package name is the path's");
}

// Returns true for a name that the archive library writes: short, and in ASCII to be simple.
bool IsWritable(const std::string& name) {
  return name.size() <= UINT16_MAX && std::all_of(name.begin(), name.end(), [](char letter) {
           return static_cast<unsigned char>(letter - 1) < 0x7f;
         });
}

// Checks that only libraries of the package's own folder are labelled.
void CheckLabelled(const std::vector<std::string>& entryNames) {
  static const Installed installed;
  PackageBuilder builder;
  builder.Manifest(ManifestXml("org.quillon.test", /*isHalyx=*/true));
  for (const std::string& name : entryNames) {
    if (IsWritable(name)) builder.Entry(name, {});
  }
  SignerOptions signer;
  signer.key = &FixedKeys().front();
  const Fd file = MemoryFile(builder.V2({signer}).Build());
  tarnsim::Simulation simulation;
  Apk apk(file.GetFd(), (installed.app + "base.apk").c_str());
  const uint32_t code = TarnSignJni(apk, file.GetFd(), nullptr);
  Require(code == TARN_OK || !apk.IsGoodApk(), "a good package is labelled");
  for (const tarnsim::Request& request : simulation.TakeJournal()) {
    if (request.call != tarnsim::Call::kSign) continue;
    Require(request.file.rfind(installed.app + "lib/arm", 0) == 0, "a library of the package");
    Require(request.file.find("/../") == std::string::npos, "a path without detours");
  }
}

}  // namespace

// The first line is the path of a package, the others are the names of its entries.
int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  LogCapture log;
  std::vector<std::string> lines = Split({data, data + size}, "\n");
  if (lines.empty()) return 0;
  CheckShortName(lines.front());
  lines.erase(lines.begin());
  lines.resize(std::min(lines.size(), kMostNames));
  if (!lines.empty()) CheckLabelled(lines);
  return 0;
}

// Puts a piece of a path somewhere, or mutates the bytes.
size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
  static constexpr const char* kPieces[] = {"/data/app/",
                                            "~~",
                                            "-AbCdEfGhIjKlMnOpQrStUv==/",
                                            "==/",
                                            "/base.apk",
                                            "org.quillon.test",
                                            "lib/",
                                            "lib/arm64-v8a",
                                            "lib/armeabi-v7a",
                                            "lib/armeabi-v8a",
                                            "lib/armeabi",
                                            "libx.so",
                                            "outside.so",
                                            "/",
                                            "..",
                                            ".",
                                            ".so",
                                            "\n",
                                            "\nlib/arm64-v8a/libx.so"};
  Random random(seed);
  if (random.OneIn(3)) return LLVMFuzzerMutate(data, size, maxSize);
  ByteVector bytes(data, data + size);
  for (size_t count = 1 + random.Below(4); count != 0; --count) {
    const ByteVector piece = Wire().Text(random.OneOf(kPieces));
    const auto at = bytes.begin() + static_cast<ptrdiff_t>(random.Below(bytes.size() + 1));
    const auto replaced = std::min(bytes.end() - at, static_cast<ptrdiff_t>(random.Below(12)));
    bytes.insert(random.OneIn(2) ? at : bytes.erase(at, at + replaced), piece.begin(), piece.end());
  }
  return PutMutated(bytes, data, size, maxSize);
}
