// SPDX-License-Identifier: Apache-2.0

#include <fnmatch.h>
#include <gtest/gtest.h>
#include <openssl/digest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>

#include "tests/support/opened_package.h"
#include "tests/support/table.h"
#include "util/text.h"

namespace Quill {
namespace {

using nlohmann::json;

std::string Sha256(const ByteVector& bytes) {
  const ByteVector digest = DigestOf(EVP_sha256(), bytes);
  return ToHex(digest.data(), digest.size());
}

}  // namespace

TEST(Samples, HaveTheirSchemeNameAndKey) {
  for (const Row& row : ReadTable("samples.txt")) {
    const OpenedPackage opened(ReadFile(QUILLON_SAMPLES_DIR "/" + row.fields[0]),
                               /*ignoreHalyxFilter=*/false);
    EXPECT_TRUE(opened.isGoodApk && opened.isHalyx) << opened.log;
    EXPECT_EQ(row.fields[1], std::to_string(opened.scheme)) << row.text;
    EXPECT_EQ(row.fields[2], opened.packageName);
    EXPECT_EQ(row.fields[3], Sha256(opened.key)) << row.text;
  }
}

TEST(RealPackages, GiveTheExpectedVerdictKeyAndLog) {
  const std::string folder = QUILLON_PACKAGES_DIR "/";
  std::ifstream expectations(folder + "expected.jsonl");
  if (!expectations) GTEST_SKIP() << "no folder of real packages here";
  for (std::string text; std::getline(expectations, text);) {
    const json expected = json::parse(text);
    SCOPED_TRACE(expected["file"]);
    const OpenedPackage opened(ReadFile(folder + expected["file"].get<std::string>()));
    const json facts = {
        {"isGoodApk", opened.isGoodApk},
        {"isGoodZip", opened.isGoodZip},
        {"isApk", opened.isApk},
        {"scheme", opened.scheme},
        {"packageName", opened.packageName},
        {"halyxPermissionRequired", opened.isHalyx},
        {"manufacturerKeyLength", opened.key.size()},
        {"manufacturerKeySha256", opened.key.empty() ? json() : json(Sha256(opened.key))},
    };
    for (const auto& [name, fact] : facts.items()) EXPECT_EQ(expected[name], fact) << name;
    // Lines are [priority, text]. <FD> and <ERR> stand for some characters of the platform's.
    std::string pattern;
    for (const json& line : expected["log"]) {
      pattern += line[0].get<std::string>() + " " + line[1].get<std::string>() + "\n";
    }
    pattern = std::regex_replace(pattern, std::regex("\\["), "\\[");
    pattern = std::regex_replace(pattern, std::regex("<PATH>"), kMemoryPath);
    pattern = std::regex_replace(pattern, std::regex("<FD>|<ERR>"), "*");
    const std::string log = std::regex_replace(opened.log, std::regex("~\n"), "\n");
    EXPECT_EQ(0, fnmatch(pattern.c_str(), log.c_str(), 0)) << log << "expected:\n" << pattern;
  }
}

}  // namespace Quill
