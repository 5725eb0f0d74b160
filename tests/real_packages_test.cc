// SPDX-License-Identifier: Apache-2.0

#include <fnmatch.h>
#include <gtest/gtest.h>
#include <openssl/digest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>

#include "tests/support/opened_package.h"

namespace Quill {
namespace {

using nlohmann::json;

std::string Sha256(const ByteVector& bytes) { return Hex(DigestOf(EVP_sha256(), bytes)); }

// Returns the pattern of an expected log, whose lines are [priority, text]. <ERR> stands for some
// characters that the platform chooses.
std::string Pattern(const json& expectedLog) {
  std::string pattern;
  for (const json& line : expectedLog) {
    pattern += line[0].get<std::string>() + " " + line[1].get<std::string>() + "\n";
  }
  const std::pair<const char*, std::string> kReplacements[] = {
      {"\\[", "\\["}, {"<PATH>", kMemoryPath}, {"<FD>|<ERR>", "*"}};
  for (const auto& [what, with] : kReplacements) {
    pattern = std::regex_replace(pattern, std::regex(what), with);
  }
  return pattern;
}

}  // namespace

// A lineage's oldest key is the package's.
TEST(Samples, HaveTheirSchemeNameAndKey) {
  const std::tuple<const char*, int, const char*, const char*> kCases[] = {
      {"v1.apk", 1, "org.quillon.sample.v1",
       "954a7763fc0af1dab1ad180ef203e16addb2990ac76881a22053ad438b47c9cf"},
      {"v1-dsa.apk", 1, "org.quillon.sample.v1.dsa",
       "8009daa4b7666a32df49e791cc041bb7615eb39fd2aa15f975f4f2b022cccdd6"},
      {"v2.apk", 2, "org.quillon.sample.v2",
       "37e7ead27bf18684b6c10fcdcd2c222451a491eb7a0e896bade14d61ab209991"},
      {"v3.apk", 3, "org.quillon.sample.v3",
       "16c2e52936dd87b7455c85628658c6719e19017c7f93919e70be1a610d5b2d8e"},
      {"v3-rotated.apk", 3, "org.quillon.sample.rotated",
       "a999f049531ff980e87dba1264cd4ff0c97f43bdc5ea5c7361fd08b1503fbff3"},
  };
  for (const auto& [file, scheme, packageName, keySha256] : kCases) {
    const OpenedPackage opened(ReadFile(std::string(QUILLON_SAMPLES_DIR "/") + file),
                               /*ignoreHalyxFilter=*/false);
    EXPECT_TRUE(opened.isGoodApk && opened.isHalyx) << opened;
    EXPECT_EQ(scheme, opened.scheme) << file;
    EXPECT_EQ(packageName, opened.packageName);
    EXPECT_EQ(keySha256, Sha256(opened.key)) << file;
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
    const std::string log = std::regex_replace(opened.log, std::regex("~\n"), "\n");
    EXPECT_EQ(0, fnmatch(Pattern(expected["log"]).c_str(), log.c_str(), 0))
        << log << "expected:\n"
        << expected["log"].dump(1);
  }
}

}  // namespace Quill
