// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <openssl/digest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>

#include <quillon/apk.h>
#include <quillon/file.h>
#include <quillon/file_name.h>

#include "tests/support/log_capture.h"
#include "tests/support/signing_key.h"

namespace Quill {
namespace {

using nlohmann::json;

void Replace(std::string& text, const std::string& what, const std::string& with) {
  for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size()) {
    text.replace(at, what.size(), with);
  }
}

// The regular expression that a log must match: <ERR> stands for some characters of the
// platform's, the entry ["?", "<ANY>"] for any lines.
std::regex Pattern(const json& expectedLog, const std::string& path, int fd) {
  std::string pattern;
  for (const json& line : expectedLog) {
    if (line[0] == "?") {
      pattern += "(.*\\n)*";
      continue;
    }
    std::string text = line[1].get<std::string>();
    Replace(text, "<PATH>", path);
    Replace(text, "<FD>", std::to_string(fd));
    text = std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), "\\$&");
    Replace(text, "<ERR>", "[^\\n]+");
    pattern += line[0].get<std::string>() + " " + text + "~?\\n";
  }
  return std::regex(pattern);
}

}  // namespace

TEST(RealPackages, GiveTheExpectedVerdictKeyAndLog) {
  std::ifstream expectations(QUILLON_PACKAGES_DIR "/expected.jsonl");
  if (!expectations) GTEST_SKIP() << "no folder of real packages here";
  for (std::string text; std::getline(expectations, text);) {
    const json expected = json::parse(text);
    const std::string path =
        std::string(QUILLON_PACKAGES_DIR) + "/" + expected["file"].get<std::string>();
    SCOPED_TRACE(path);
    const auto file = OpenFileRO(path);
    ASSERT_NE(nullptr, file);

    LogCapture log;
    Apk apk(file->GetFd(), /*ignoreHalyxFilter=*/true);
    EXPECT_EQ(expected["isGoodApk"], apk.IsGoodApk());
    EXPECT_EQ(expected["isGoodZip"], apk.IsGoodZip());
    EXPECT_EQ(expected["isApk"], apk.IsApk());
    EXPECT_EQ(expected["scheme"], static_cast<int>(apk.GetApkSignatureSchemeVersion()));
    EXPECT_EQ(expected["packageName"], apk.GetPackageName());
    EXPECT_EQ(expected["halyxPermissionRequired"], apk.IsHalyxPermissionRequired());
    EXPECT_EQ(expected["ignoreHalyxFilter"], apk.ForcedIgnoreHalyxFilter());
    EXPECT_EQ(expected["manufacturerKeyLength"], apk.GetManufacturerKey().size());
    const ByteVector& key = apk.GetManufacturerKey();
    EXPECT_EQ(expected["manufacturerKeySha256"],
              key.empty() ? json() : json(Hex(DigestOf(EVP_sha256(), key))));

    const std::string lines = log.Take();
    const std::string shownPath = GetUnifyFilenameByFd(file->GetFd());
    EXPECT_TRUE(std::regex_match(lines, Pattern(expected["log"], shownPath, file->GetFd())))
        << "log:\n"
        << lines << "expected:\n"
        << expected["log"].dump(1);
  }
}

}  // namespace Quill
