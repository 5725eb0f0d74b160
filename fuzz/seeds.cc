// SPDX-License-Identifier: Apache-2.0

// Writes the first inputs of the targets, one folder for each target: packages that it builds, and
// pieces of these and of the given packages.
// usage: fuzz_seeds FOLDER [PACKAGE...]

#include <ziparchive/zip_archive.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include <quillon/apk.h>
#include <quillon/digest.h>

#include "fuzz/package_mutator.h"
#include "fuzz/seed_packages.h"
#include "signing_block/zip_format.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_file.h"
#include "util/byte_cursor.h"
#include "util/text.h"

using namespace Quill;  // NOLINT(google-build-using-namespace)

namespace fs = std::filesystem;

namespace {

void Save(const fs::path& folder, const std::string& target, const ByteVector& bytes) {
  if (bytes.empty()) return;
  fs::create_directories(folder / target);
  const ByteVector digest = ComputeSHA1Digest(bytes);
  std::ofstream file(folder / target / ToHex(digest.data(), digest.size()), std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<ptrdiff_t>(bytes.size()));
}

void SavePairs(const fs::path& folder, ByteCursor pairs) {
  uint64_t length;
  uint32_t id;
  ByteCursor pair;
  while (pairs.TakeU64(length) && pairs.Take(length, pair) && pair.TakeU32(id)) {
    if (id == ApkSignatureBlock::kSchemeV2Id) Save(folder, "v2_value", pair.ToVector());
    if (id == ApkSignatureBlock::kSchemeV3Id) Save(folder, "v3_value", pair.ToVector());
  }
}

void SaveEntries(const fs::path& folder, Apk& apk) {
  static constexpr std::pair<std::string_view, const char*> kTargets[] = {
      {"AndroidManifest.xml", "android_manifest"},
      {".MF", "manifest_mf"},
      {".SF", "manifest_mf"},
      {".RSA", "pkcs7"},
      {".DSA", "pkcs7"},
      {".EC", "pkcs7"}};
  for (const auto& [suffix, target] : kTargets) {
    void* cookie = nullptr;
    if (apk.StartIteration(&cookie, "", std::string(suffix)) != 0) continue;
    ZipEntry entry;
    std::string name;
    ByteVector contents;
    while (apk.Next(cookie, &entry, name) == 0) {
      if (apk.Extract(&entry, contents) == 0) Save(folder, target, contents);
    }
    apk.EndIteration(cookie);
  }
}

void SavePieces(const fs::path& folder, const ByteVector& package) {
  const LogCapture log;
  if (const auto parts = TakeApart(package)) SavePairs(folder, ByteCursor(parts->pairs));
  const Fd file = MemoryFile(package);
  Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
  if (apk.IsGoodZip()) SaveEntries(folder, apk);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  const fs::path folder = argv[1];
  for (const ByteVector& package : SeedPackages()) {
    Save(folder, "apk", package);
    Save(folder, "signing_block", package);
    SavePieces(folder, package);
  }
  for (int i = 2; i < argc; ++i) {
    std::ifstream file(argv[i], std::ios::binary);
    SavePieces(folder, {std::istreambuf_iterator<char>(file), {}});
  }
  for (const char* text : {"QUJD", "QUI=", "QQ==", "QUJD\r\nREVG\n", "Q", "****"}) {
    Save(folder, "base64", Wire().Text(text));
  }
  for (const char* text : {"4 01ff", "0x1f", "-1", "513 00", "514", "ffffffff\n", "10"}) {
    Save(folder, "task_text", Wire().Text(text));
  }
  return 0;
}
