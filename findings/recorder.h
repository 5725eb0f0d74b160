// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "findings/acceptance.h"
#include "findings/refusal.h"

namespace Quill {

// A refusal with its own copy of the evidence.
struct Refusal {
  Reason reason;
  uint64_t number = 0;
  uint64_t second = 0;
  std::string name = {};
  std::vector<uint8_t> expected = {};
  std::vector<uint8_t> found = {};
  std::optional<size_t> signer = {};  // of the pair, where one was looked at
};

// A warning; equal ones in a row are kept once.
struct WarningNote {
  Warning warning;
  uint64_t number;
  std::string name;
};

// A key that a signer has or had.
struct AcceptedKey {
  std::vector<uint8_t> certificate;  // DER
  std::vector<uint8_t> publicKey;    // DER SubjectPublicKeyInfo
  uint32_t flags = 0;                // of its level in the lineage
};

struct AcceptedSigner {
  std::vector<AcceptedKey> chain;  // the lineage, the oldest key first; the last is the signer's
  uint32_t minSdk = 0;
  uint32_t maxSdk = 0;
  uint32_t algorithmId = 0;
  std::vector<uint8_t> contentDigest;
};

struct SdkRange {
  uint32_t min = 0;  // both inclusive
  uint32_t max = 0;
};

// What one verification has found out.
struct Findings {
  std::vector<Refusal> refusals;  // in order
  std::vector<AcceptedSigner> signers;
  std::vector<SdkRange> ranges;  // of all v3 signers
  std::vector<WarningNote> warnings;
  ManifestFacts manifest;
  uint64_t blockOffset = 0;  // of the APK Signing Block
  uint64_t blockSize = 0;

  bool Has(Reason reason) const;
};

// While it lives, keeps what is found on the thread that created it. A thread has at most one at a
// time.
class FindingsRecorder {
 public:
  FindingsRecorder();
  FindingsRecorder(const FindingsRecorder&) = delete;
  FindingsRecorder& operator=(const FindingsRecorder&) = delete;
  ~FindingsRecorder();

  const Findings& Get() const { return findings_; }

 private:
  Findings findings_;
};

}  // namespace Quill
