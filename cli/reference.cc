// SPDX-License-Identifier: Apache-2.0

#include "cli/reference.h"

#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "cli/child_queue.h"
#include "cli/output.h"
#include "cli/regular_file.h"
#include "cli/zip_directory.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

using Json = nlohmann::ordered_json;

// The fields of what a child sends.
constexpr char kObstacle[] = "obstacle";  // why there is nothing else
constexpr char kKey[] = "key";            // of a certificate
constexpr char kChains[] = "chains";
constexpr char kName[] = "packageName";
constexpr char kVersion[] = "versionCode";

Json Obstacle(const std::string& text) { return {{kObstacle, text}}; }

Json ChainsToJson(const std::vector<KeyChain>& chains) {
  Json array = Json::array();
  for (const KeyChain& chain : chains) array.push_back({chain.keys, chain.minSdk, chain.maxSdk});
  return array;
}

std::vector<KeyChain> ChainsFromJson(const Json& array) {
  std::vector<KeyChain> chains;
  for (const Json& chain : array) chains.push_back({chain.at(0), chain.at(1), chain.at(2)});
  return chains;
}

// Judges a package for all its signers.
Json ExaminePackage(const std::string& file, const VerifyRules& rules) {
  const PackageReport report = VerifyPackage(file, rules);
  if (report.verdict.status != Status::kVerified) {
    return Obstacle(
        fmt::format("{}: {}", report.verdict.reason.code, report.verdict.reason.message));
  }
  std::vector<KeyChain> chains;
  const auto add = [&chains](const std::vector<SignerReport>& signers) {
    for (const SignerReport& signer : signers) chains.push_back(ChainOf(signer));
  };
  if (report.levels.empty()) add(report.signers);
  for (const LevelReport& level : report.levels) add(level.signers);
  Json found = {{kChains, ChainsToJson(chains)},
                {kName, Json::binary_t({report.packageName.begin(), report.packageName.end()})}};
  if (report.manifest.versionCode) found[kVersion] = *report.manifest.versionCode;
  return found;
}

Json ExamineCertificate(const RegularFile& file) {
  constexpr uint64_t kMost = 1 << 20;
  const auto size = static_cast<uint64_t>(file.info.st_size);
  if (size > kMost) return Obstacle("it is no certificate and no package");
  std::vector<uint8_t> bytes(size);
  if (!ReadAt(file.fd->GetFd(), 0, bytes.data(), size)) return Obstacle("it cannot be read");
  const std::optional<std::string> key = KeyOfCertificate(bytes);
  return key ? Json{{kKey, *key}} : Obstacle("it is not one certificate, and no package");
}

Json ExamineSigner(const std::string& path, const VerifyRules& rules) {
  const RegularFile file = OpenRegularFile(path);
  if (!file.fd) return Obstacle(file.obstacle);
  char start[2] = "";
  const bool isZip =
      ReadAt(file.fd->GetFd(), 0, start, sizeof start) && start[0] == 'P' && start[1] == 'K';
  return isZip ? ExaminePackage(path, rules) : ExamineCertificate(file);
}

// Runs the work in a child.
Json RunApart(const std::function<Json()>& work, const ChildLimits& limits) {
  bool isBegun = false;
  ChildQueue queue(1, limits, [&]() -> ChildQueue::Work {
    if (std::exchange(isBegun, true)) return nullptr;
    return [&work] {
      std::string bytes;
      Json::to_msgpack(work(), bytes);
      return bytes;
    };
  });
  while (queue.WaitFor(std::chrono::hours(1)) == ChildQueue::State::kWaiting) {
  }
  const ChildResult result = queue.Take();
  if (result.end == ChildEnd::kReported) {
    Json found = Json::from_msgpack(result.report, /*strict=*/true, /*allow_exceptions=*/false);
    if (found.is_object()) return found;
  }
  return Obstacle("the process that read it ended, or cost more than it was allowed");
}

}  // namespace

std::optional<ExpectedSigner> ReadExpectedSigner(const std::string& text, const VerifyRules& rules,
                                                 const ChildLimits& limits) {
  if (const auto digest = ParseSha256(text))
    return ExpectedSigner{"sha256:" + *digest, *digest, {}};
  const Json found = RunApart([&] { return ExamineSigner(text, rules); }, limits);
  if (found.contains(kObstacle)) {
    std::error_code error;
    const std::string why = std::filesystem::exists(text, error) ? "" : WhyNotSha256(text);
    PrintDiagnostic(fmt::format("--signer {}: {}{}{}", FileText(text),
                                found[kObstacle].get<std::string>(), why.empty() ? "" : "; ", why));
    return std::nullopt;
  }
  if (found.contains(kKey)) {
    const std::string key = found[kKey];
    return ExpectedSigner{"sha256:" + key, key, {}};
  }
  std::vector<KeyChain> chains = ChainsFromJson(found[kChains]);
  const std::string name = fmt::format("the signer of {} ({})", FileText(text), TextOf(chains));
  return ExpectedSigner{name, "", std::move(chains)};
}

std::optional<Sibling> ReadSibling(const std::string& file, const VerifyRules& rules,
                                   const ChildLimits& limits) {
  const Json found = RunApart([&] { return ExaminePackage(file, rules); }, limits);
  if (found.contains(kObstacle)) return std::nullopt;
  const auto& name = found[kName].get_binary();
  Sibling sibling = {file, ChainsFromJson(found[kChains]), {name.begin(), name.end()}, {}};
  if (found.contains(kVersion)) sibling.versionCode = found[kVersion].get<uint64_t>();
  return sibling;
}

}  // namespace Quill::Tool
