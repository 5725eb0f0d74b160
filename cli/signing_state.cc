// SPDX-License-Identifier: Apache-2.0

#include "cli/signing_state.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <vector>

#include "anatomy/signer_facts.h"
#include "cli/expected_signer.h"
#include "cli/sdk_level.h"
#include "util/escape.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

using Anatomy::Field;
using Anatomy::SignerFacts;
using Json = nlohmann::ordered_json;

struct LevelSigners {
  SdkRange levels;
  std::vector<SignerReport> signers;
};

std::vector<LevelSigners> LevelsIn(const PackageReport& report) {
  std::vector<LevelSigners> levels;
  if (report.verdict.status != Status::kVerified) return levels;
  for (const LevelReport& level : report.levels) levels.push_back({level.levels, level.signers});
  if (levels.empty()) levels.push_back({{0, kMostSdkLevel}, report.signers});
  return levels;
}

std::vector<LevelSigners> LevelsFromJson(const Json& array) {
  std::vector<LevelSigners> levels;
  for (const Json& item : array) {
    LevelSigners level = {{item.at(0), item.at(1)}, {}};
    for (const Json& chain : item.at(2)) {
      SignerReport signer;
      for (const Json& key : chain.at(0)) signer.chain.emplace_back().publicKeySha256 = key;
      signer.minSdk = chain.at(1);
      signer.maxSdk = chain.at(2);
      if (!signer.chain.empty()) level.signers.push_back(std::move(signer));
    }
    levels.push_back(std::move(level));
  }
  return levels;
}

std::vector<KeyChain> ChainsIn(const std::vector<LevelSigners>& levels) {
  std::vector<KeyChain> chains;
  for (const LevelSigners& level : levels) {
    for (const SignerReport& signer : level.signers) chains.push_back(ChainOf(signer));
  }
  return chains;
}

bool HaveSameSignersAt(const std::vector<LevelSigners>& levels,
                       const std::vector<KeyChain>& chains) {
  return std::all_of(levels.begin(), levels.end(), [&](const LevelSigners& level) {
    return HaveSameSigners(level.signers, level.levels, chains);
  });
}

bool HasSeveralSigners(const LevelSigners& level) { return level.signers.size() > 1; }

// Returns what stands before a fact of one signer, such as "v3[0]" or `v1 "META-INF/CERT.RSA"`.
std::string LabelOf(const SignerFacts& signer) {
  if (!signer.block.empty()) return signer.scheme + ' ' + Quote(EscapeInvalidUtf8(signer.block));
  constexpr std::string_view kBlock = "signingBlock.";
  constexpr std::string_view kSigners = ".signers";
  std::string label = signer.path.substr(std::min(kBlock.size(), signer.path.size()));
  if (const size_t found = label.rfind(kSigners); found != std::string::npos) {
    label.erase(found, kSigners.size());
  }
  return label;
}

std::string CertificateText(const std::optional<Anatomy::CertificateFacts>& certificate) {
  return certificate ? "sha256:" + certificate->sha256 : "unreadable";
}

std::vector<std::string> AlgorithmsOf(const SignerFacts& signer) {
  std::vector<std::string> texts;
  for (const Anatomy::AlgorithmFacts& algorithm : signer.signatures) {
    const std::string name(algorithm.Name());
    if (!algorithm.id) {
      texts.push_back(name);
    } else {
      texts.push_back(
          fmt::format("{:#06x}{}", *algorithm.id, name.empty() ? "" : fmt::format(" ({})", name)));
    }
  }
  return texts;
}

void AddSigner(const SignerFacts& signer, Json& facts) {
  const std::string label = LabelOf(signer);
  const auto add = [&](const char* name, const std::vector<std::string>& texts, const char* glue) {
    facts[name].push_back(fmt::format("{}: {}", label, fmt::join(texts, glue)));
  };
  Json& schemes = facts["schemes"];
  if (std::find(schemes.begin(), schemes.end(), signer.scheme) == schemes.end()) {
    schemes.push_back(signer.scheme);
  }
  add("algorithms", AlgorithmsOf(signer), ", ");
  if (signer.minSdk && signer.maxSdk) {
    add("sdkRanges", {SdkRangeText(*signer.minSdk, *signer.maxSdk)}, "");
  }
  std::vector<std::string> certificates;
  for (const auto& certificate : signer.certificates) {
    certificates.push_back(CertificateText(certificate));
  }
  add("certificates", certificates, ", ");
  std::vector<std::string> levels;
  for (const Anatomy::LevelFacts& level : signer.lineage) {
    levels.push_back(
        fmt::format("{} flags {:#x}", CertificateText(level.certificate), level.flags));
  }
  if (!levels.empty()) add("lineages", levels, " then ");
}

// Adds the pairs of the signing block. What signatures and padding say changes with the content, so
// it does not count; of other pairs it does.
void AddPairs(const Anatomy::Package& package, Json& facts) {
  const Field* block = package.file.Child("signingBlock");
  if (block == nullptr) return;
  for (const Field& pair : block->fields) {
    const Field* id = pair.Child("id");
    const std::string_view name = pair.name;
    if (id == nullptr || name == "padding") continue;
    std::string text = ValueText(*id, package.Bytes());
    if (name != "v2" && name != "v3" && name != "v31") {
      text += " sha256:" + Sha256Of(BytesOf(pair, package.Bytes()).ToVector());
    }
    facts["pairs"].push_back(std::move(text));
  }
}

std::string VerdictText(const PackageReport& report) {
  const Verdict& verdict = report.verdict;
  if (verdict.status == Status::kVerified) {
    return fmt::format("verified, v{}", static_cast<int>(report.scheme));
  }
  return fmt::format("{}, {}: {}", NameOf(verdict.status), verdict.reason.code,
                     EscapeInvalidUtf8(verdict.reason.message));
}

}  // namespace

Json SigningFacts(const PackageReport& report, const Anatomy::Package* package) {
  Json facts;
  facts["verdict"].push_back(VerdictText(report));
  for (const char* name :
       {"keys", "schemes", "algorithms", "sdkRanges", "certificates", "lineages", "pairs"}) {
    facts[name] = Json::array();
  }
  for (const LevelSigners& level : LevelsIn(report)) {
    facts["keys"].push_back(fmt::format(
        "SDK {}: {}", SdkRangeText(level.levels.min, level.levels.max), TextOf(ChainsIn({level}))));
  }
  if (package == nullptr) return facts;
  // All that there are: a tree has a limited number of fields.
  for (const SignerFacts& signer : SignersOf(*package, std::numeric_limits<size_t>::max())) {
    AddSigner(signer, facts);
  }
  AddPairs(*package, facts);
  return facts;
}

Json SignersByLevel(const PackageReport& report) {
  Json array = Json::array();
  for (const LevelSigners& level : LevelsIn(report)) {
    Json chains = Json::array();
    for (const KeyChain& chain : ChainsIn({level})) {
      chains.push_back(Json::array({chain.keys, chain.minSdk, chain.maxSdk}));
    }
    array.push_back(Json::array({level.levels.min, level.levels.max, chains}));
  }
  return array;
}

std::string CompareSigners(const Json& a, const Json& b) {
  const std::vector<LevelSigners> older = LevelsFromJson(a);
  const std::vector<LevelSigners> newer = LevelsFromJson(b);
  const std::vector<KeyChain> chains = ChainsIn(older);
  const std::vector<KeyChain> newerChains = ChainsIn(newer);
  if (chains.empty() || newerChains.empty()) return "unknown";
  if (HaveSameSignersAt(newer, chains) && HaveSameSignersAt(older, newerChains)) return "same";
  const std::vector<ExpectedSigner> expected = {ExpectedSigner{"", "", chains}};
  bool isRolledBack = false;
  for (const LevelSigners& level : newer) {
    const SignerMatch match = Match(level.signers, level.levels, expected);
    if (match == SignerMatch::kUnexpected) return "another";
    isRolledBack |= match == SignerMatch::kRolledBack;
  }
  if (isRolledBack) return "rolled-back";
  // Keys rotate in lineages, and only one signer has a lineage. Several in another order give the
  // package another identity.
  const bool hasSeveral = std::any_of(older.begin(), older.end(), HasSeveralSigners) ||
                          std::any_of(newer.begin(), newer.end(), HasSeveralSigners);
  return hasSeveral ? "another" : "rotated";
}

}  // namespace Quill::Tool
