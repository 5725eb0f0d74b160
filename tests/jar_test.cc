// SPDX-License-Identifier: Apache-2.0

// How JAR signatures are verified is in transcripts/jar.txt.

#include <gtest/gtest.h>
#include <ziparchive/zip_archive.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include <quillon/manifest_mf.h>

#include "tests/support/opened_package.h"
#include "tests/support/table.h"

namespace Quill {

using nlohmann::json;

TEST(ManifestMf, ReadsSections) {
  ManifestMf manifest;  // each load replaces what the one before has read
  for (const Row& row : ReadTable("manifest_mf.txt")) {
    LogCapture log;
    EXPECT_EQ(row.log.empty(), manifest.load(json::parse(row.fields[0]))) << row.text;
    EXPECT_EQ(row.log.empty(), static_cast<bool>(manifest));
    EXPECT_EQ(json::parse(row.fields[1]), json(manifest.getSections())) << row.text;
    EXPECT_EQ(row.log, log.Take()) << row.text;
  }
}

TEST(EntryDigests, AreCheckedForEachFormOfAnEntry) {
  const ByteVector kDex = {'d', 'e', 'x'};
  const TempFolder folder;
  folder.Write("same", kDex);
  folder.Write("other", {'d', 'e', 'y'});
  JarOptions options;
  options.editManifest = [](std::string& text) {
    text +=
        "Name: sha512\r\nSHA-512-Digest: AAAA\r\n\r\nName: several\r\n"
        "SHA-256-Digest: nQ+/k0n2RvFDUHLysCEghHUu9GAb1rAS+75htsXgOTA=\r\n"
        "SHA1-Digest: AAAA\r\n\r\n";
  };
  const ByteVector listing = Wire().Text("A: 1\n\nName: META-INF/CERT.SF\nSHA1-Digest: AAAA\n\n");
  PackageBuilder jar, whole;
  jar.Manifest().Entry("classes.dex", kDex, Compression::kDeflated).JarSignature(options);
  for (const char* name : {"sha512", "several", "unlisted"}) jar.Entry(name, kDex);
  for (const char* name : {"classes.dex", "META-INF/CERT.SF", "unlisted"}) whole.Entry(name, kDex);
  const Fd v1File = MemoryFile(jar.Build());
  const Fd v2File =
      MemoryFile(whole.Manifest().Entry("META-INF/MANIFEST.MF", listing).V2().Build());
  Apk v1(v1File.GetFd(), /*ignoreHalyxFilter=*/true), v2(v2File.GetFd(), true);
  ASSERT_TRUE(v1.IsGoodApk() && v2.IsGoodApk());

  for (const Row& row : ReadTable("entry_digests.txt")) {
    Apk& apk = row.fields[0] == "v1" ? v1 : v2;
    const std::string &form = row.fields[1], name = row.fields.size() > 2 ? row.fields[2] : "";
    LogCapture log;
    ZipEntry entry{};
    const std::string file = std::filesystem::path(folder.Path()) / form;
    const bool isGood = form == "name" ? apk.VerifyFileHash(name)
                        : form == "entry"
                            ? apk.FindEntry(name, &entry) == 0 && apk.VerifyFileHash(name, &entry)
                            : apk.VerifyFileHash(name, file);
    EXPECT_EQ(row.log.empty(), isGood) << row.text;
    EXPECT_EQ(row.log, log.Take()) << row.text;
  }
  EXPECT_TRUE(v1.VerifyFileHash(std::string(65536, 'n')));
}

}  // namespace Quill
