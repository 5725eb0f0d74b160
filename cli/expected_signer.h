// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/signer_report.h"

namespace Quill::Tool {

// Digests of a signer's public keys, the oldest first, for a range of SDK levels.
struct KeyChain {
  std::vector<std::string> keys;  // SHA-256 of each DER SubjectPublicKeyInfo
  uint32_t minSdk = 0;            // both inclusive
  uint32_t maxSdk = 0;
};

[[nodiscard]] KeyChain ChainOf(const SignerReport& signer);

// Such as "sha256:A then sha256:B", for people. Chains are joined by "and".
[[nodiscard]] std::string TextOf(const std::vector<KeyChain>& chains);

// Who may have signed a package: the holder of a key or of a certificate, or whoever signed another
// package.
struct ExpectedSigner {
  std::string text;              // for people
  std::string sha256;            // of a certificate or of a public key; empty for a package
  std::vector<KeyChain> chains;  // of the package's signers
};

// Another package of the same set, such as the base of a split.
struct Sibling {
  std::string file;
  std::vector<KeyChain> chains;
  std::string packageName;
  std::optional<uint64_t> versionCode;
};

enum class SignerMatch { kExpected, kRolledBack, kUnexpected };

// Compares all signers that a package has for some SDK levels with the expected ones. Each of them
// must be expected: by one of its keys or their certificates, or by an expected package. That has
// the same oldest key, and its current key is in the signer's chain; and each of its signers has
// also signed this one. kRolledBack: the signer's key is one that an expected package no longer
// uses.
[[nodiscard]] SignerMatch Match(const std::vector<SignerReport>& signers, SdkRange levels,
                                const std::vector<ExpectedSigner>& expected);

// Returns true when both have the same chains of keys in the same order for those SDK levels.
[[nodiscard]] bool HaveSameSigners(const std::vector<SignerReport>& signers, SdkRange levels,
                                   const std::vector<KeyChain>& chains);

// Returns the text as a SHA-256 digest in lowercase without colons, if it is one. It may begin with
// "sha256:", as what the tool prints.
[[nodiscard]] std::optional<std::string> ParseSha256(const std::string& text);

// Returns why a text that looks like a digest is none that ParseSha256 takes, such as "a SHA-256
// has 64 hexadecimal digits, and this has 63". Empty for any other text.
[[nodiscard]] std::string WhyNotSha256(const std::string& text);

// Returns the SHA-256 of the public key of a certificate, DER or PEM. Nothing when the bytes are
// not exactly one certificate.
[[nodiscard]] std::optional<std::string> KeyOfCertificate(const std::vector<uint8_t>& bytes);

}  // namespace Quill::Tool
