#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/sha.h>

#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>

#include "apk/apk.h"
#include "schemes/apk_signature_block_base.h"
#include "signing_block/apk_package.h"
#include "tests/support/log_capture.h"
#include "tests/support/wire.h"
#include "util/file.h"
#include "util/file_name.h"

namespace Quill {
namespace {

using nlohmann::json;

std::vector<json> ReadExpectations() {
  std::vector<json> expectations;
  std::ifstream file(std::string(QUILLON_PACKAGES_DIR) + "/expected.jsonl");
  for (std::string line; std::getline(file, line);) expectations.push_back(json::parse(line));
  return expectations;
}

json Sha256Hex(const std::vector<uint8_t>& bytes) {
  if (bytes.empty()) return nullptr;
  uint8_t digest[SHA256_DIGEST_LENGTH];
  SHA256(bytes.data(), bytes.size(), digest);
  std::string hex;
  for (const uint8_t byte : digest) {
    hex += "0123456789abcdef"[byte >> 4];
    hex += "0123456789abcdef"[byte & 15];
  }
  return hex;
}

void Replace(std::string& text, const std::string& what, const std::string& with) {
  for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size()) {
    text.replace(at, what.size(), with);
  }
}

// One log as lines "E text". Texts count up to 1,000 bytes; those that are not UTF-8 as \xNN.
std::string Joined(const std::vector<LogLine>& log) {
  std::string joined;
  for (const LogLine& line : log) {
    std::string text = line.text;
    if (!text.empty() && text.back() == '\n') text.pop_back();
    joined += (line.priority == ANDROID_LOG_ERROR ? "E " : "I ") + text.substr(0, 1000) + '\n';
  }
  return joined;
}

// The regular expression that such a log must match: <ERR> stands for some characters of the
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
    pattern += line[0].get<std::string>() + " " + text + "\\n";
  }
  return std::regex(pattern);
}

// How many public keys the package's v2 or v3 block yields; null when it has none that verifies.
json PublicKeyCount(int fd) {
  ApkPackage package(MapFileRO(fd));
  if (!package.ParseApkPackage()) return nullptr;
  const EocdRecord* eocd = package.FindEocdRecord();
  std::vector<const ApkSignatureBlock*> pairs;
  package.ParseApkSignatureBlocks(package.FindApkSigningBlock(package.FindCentralDirectory(eocd)),
                                  pairs);
  ByteVector eocdCopy(sizeof *eocd + eocd->commentLength);
  std::memcpy(eocdCopy.data(), eocd, eocdCopy.size());
  std::vector<RawData> chunks;
  package.PrepareRawDataChunks(reinterpret_cast<EocdRecord*>(eocdCopy.data()), chunks);
  const auto block = package.CreateApkSignatureBlock(package.FindApkSignatureBlock(pairs), chunks);
  std::vector<ByteVector> keys;
  if (!block->Parse() || !block->Verify() || !block->GetPublicKeys(keys)) return nullptr;
  return keys.size();
}

}  // namespace

TEST(RealPackages, GiveTheExpectedVerdictKeyAndLog) {
  const std::vector<json> expectations = ReadExpectations();
  if (expectations.empty()) GTEST_SKIP() << "no folder of real packages here";
  for (const json& expected : expectations) {
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
    EXPECT_EQ(expected["manufacturerKeySha256"], Sha256Hex(apk.GetManufacturerKey()));

    const std::string lines = Joined(log.Take());
    const std::string shownPath = GetUnifyFilenameByFd(file->GetFd());
    EXPECT_TRUE(std::regex_match(lines, Pattern(expected["log"], shownPath, file->GetFd())))
        << "log:\n"
        << lines << "expected:\n"
        << expected["log"].dump(1);
    if (apk.IsApk()) {
      EXPECT_EQ(expected["publicKeyCount"], PublicKeyCount(file->GetFd()));
    }
  }
}

}  // namespace Quill
