// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "findings/recorder.h"

namespace Quill::Tool {

// A key that verified, by the names that other tools give it.
struct KeyReport {
  std::string certificateSha256;  // of the DER bytes, in lowercase hexadecimal digits
  std::string publicKeySha256;    // of the DER SubjectPublicKeyInfo
  std::string type;               // "RSA", "EC" or "DSA"
  uint32_t bits = 0;
  uint32_t flags = 0;  // of its level in the lineage
  bool isDebug = false;
};

// A signer that verified. Two chains are the same when all publicKeySha256 are.
struct SignerReport {
  std::vector<KeyReport> chain;  // the oldest key first; the last is the signer's own
  uint32_t minSdk = 0;           // both inclusive
  uint32_t maxSdk = 0;
  std::vector<uint8_t> contentDigest;  // empty for a JAR signature

  const KeyReport& Current() const { return chain.back(); }
  const KeyReport& Oldest() const { return chain.front(); }
};

[[nodiscard]] std::vector<SignerReport> ReportSigners(const std::vector<AcceptedSigner>& signers);

[[nodiscard]] std::string Sha256Of(const std::vector<uint8_t>& bytes);

// For the report of a file.
[[nodiscard]] nlohmann::ordered_json ToJson(const SignerReport& signer);

}  // namespace Quill::Tool
