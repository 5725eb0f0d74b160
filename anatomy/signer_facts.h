// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "anatomy/certificate_facts.h"
#include "anatomy/package.h"

namespace Quill::Anatomy {

struct AlgorithmFacts {
  std::optional<uint32_t> id;  // a JAR signature has none
  bool isChosen = false;       // the verifier goes by this one
  std::string jarNames;        // of a JAR signature, such as "rsaEncryption with sha256"

  // Returns what people call it; empty for an unknown ID.
  std::string_view Name() const { return id ? AlgorithmName(*id) : jarNames; }
};

struct LevelFacts {
  std::optional<CertificateFacts> certificate;
  uint32_t flags = 0;
  uint32_t algorithmId = 0;  // of the next level's signature
};

// A signer of a package, as it says of itself.
struct SignerFacts {
  std::string path;       // such as "signingBlock.v3.signers[0]"; of a JAR signature, of its block
  std::string block;      // the entry name of a JAR signature's block; empty of others
  std::string scheme;     // "v1", "v2", "v3" or "v31"
  bool isChosen = false;  // the verifier goes by it, on this platform
  std::optional<uint32_t> minSdk;
  std::optional<uint32_t> maxSdk;
  std::vector<AlgorithmFacts> signatures;
  // Nothing stands for one that cannot be read. The verifier goes by the first one, in a JAR
  // signature by the last one.
  std::vector<std::optional<CertificateFacts>> certificates;
  std::optional<PublicKeyFacts> publicKey;  // beside the certificate; of a JAR signature, in it
  std::vector<LevelFacts> lineage;          // the oldest first

  // The certificate that the verifier goes by, or null.
  const CertificateFacts* Certificate() const;
};

// Returns the signers that the file has, in order of offset, as far as they can be read. At most
// `most` of them, each with at most as many certificates and levels.
[[nodiscard]] std::vector<SignerFacts> SignersOf(const Package& package, size_t most);

// Returns what a level's certificate may still be used for, such as "installed data, permission".
[[nodiscard]] std::string FlagNames(uint32_t flags);

}  // namespace Quill::Anatomy
