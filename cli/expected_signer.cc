// SPDX-License-Identifier: Apache-2.0

#include "cli/expected_signer.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <set>
#include <string_view>

#include "crypto/x509_certificate.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

bool Has(const std::vector<std::string>& keys, const std::string& key) {
  return std::find(keys.begin(), keys.end(), key) != keys.end();
}

// The chains for that SDK level. Where a package has none, those for the newest platforms.
std::vector<KeyChain> ChainsFor(const std::vector<KeyChain>& chains, uint32_t sdk) {
  std::vector<KeyChain> found;
  const auto take = [&](uint32_t level) {
    std::copy_if(
        chains.begin(), chains.end(), std::back_inserter(found),
        [level](const KeyChain& chain) { return chain.minSdk <= level && level <= chain.maxSdk; });
  };
  take(sdk);
  if (!found.empty()) return found;
  uint32_t newest = 0;
  for (const KeyChain& chain : chains) newest = std::max(newest, chain.maxSdk);
  take(newest);
  return found;
}

// Returns true when the holder of `expected` may still sign as `chain` does.
bool Continues(const KeyChain& chain, const KeyChain& expected) {
  return chain.keys.front() == expected.keys.front() && Has(chain.keys, expected.keys.back());
}

bool IsExpected(const SignerReport& signer, const std::vector<KeyChain>& signers, uint32_t sdk,
                const ExpectedSigner& expected) {
  if (!expected.sha256.empty()) {
    return std::any_of(signer.chain.begin(), signer.chain.end(), [&](const KeyReport& key) {
      return key.publicKeySha256 == expected.sha256 || key.certificateSha256 == expected.sha256;
    });
  }
  const std::vector<KeyChain> wanted = ChainsFor(expected.chains, sdk);
  const KeyChain own = ChainOf(signer);
  const bool isOne = std::any_of(wanted.begin(), wanted.end(),
                                 [&](const KeyChain& chain) { return Continues(own, chain); });
  return isOne && std::all_of(wanted.begin(), wanted.end(), [&](const KeyChain& chain) {
           return std::any_of(signers.begin(), signers.end(),
                              [&](const KeyChain& other) { return Continues(other, chain); });
         });
}

bool IsRolledBack(const SignerReport& signer, uint32_t sdk, const ExpectedSigner& expected) {
  const std::vector<KeyChain> wanted = ChainsFor(expected.chains, sdk);
  return std::any_of(wanted.begin(), wanted.end(), [&](const KeyChain& chain) {
    return chain.keys.back() != signer.Current().publicKeySha256 &&
           Has(chain.keys, signer.Current().publicKeySha256);
  });
}

// Compares the signers for one level.
SignerMatch MatchAt(const std::vector<SignerReport>& signers, uint32_t sdk,
                    const std::vector<ExpectedSigner>& expected) {
  std::vector<KeyChain> chains;
  chains.reserve(signers.size());
  for (const SignerReport& signer : signers) chains.push_back(ChainOf(signer));
  const auto isExpected = [&](const SignerReport& signer) {
    return std::any_of(expected.begin(), expected.end(), [&](const ExpectedSigner& candidate) {
      return IsExpected(signer, chains, sdk, candidate);
    });
  };
  const auto stranger = std::find_if_not(signers.begin(), signers.end(), isExpected);
  if (signers.empty()) return SignerMatch::kUnexpected;
  if (stranger == signers.end()) return SignerMatch::kExpected;
  const bool isRolledBack = std::any_of(
      expected.begin(), expected.end(),
      [&](const ExpectedSigner& candidate) { return IsRolledBack(*stranger, sdk, candidate); });
  return isRolledBack ? SignerMatch::kRolledBack : SignerMatch::kUnexpected;
}

constexpr size_t kSha256Digits = 64;
constexpr std::string_view kSha256Prefix = "sha256:";

// Returns the hexadecimal digits of a digest in lowercase, if the text has nothing but those,
// colons and the prefix.
std::optional<std::string> DigitsIn(const std::string& text) {
  std::string digits;
  for (const char c : text.substr(StartsWith(text, kSha256Prefix) ? kSha256Prefix.size() : 0)) {
    if (c == ':') continue;
    if (std::isxdigit(static_cast<unsigned char>(c)) == 0) return std::nullopt;
    digits += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return digits;
}

// Returns the first of `levels`, and those of them where other chains begin to count.
std::set<uint32_t> LevelsToCompare(SdkRange levels, const std::vector<KeyChain>& chains) {
  std::set<uint32_t> starts{levels.min};
  for (const KeyChain& chain : chains) {
    for (const uint64_t start : {uint64_t{chain.minSdk}, uint64_t{chain.maxSdk} + 1}) {
      if (levels.min < start && start <= levels.max) starts.insert(static_cast<uint32_t>(start));
    }
  }
  return starts;
}

}  // namespace

KeyChain ChainOf(const SignerReport& signer) {
  KeyChain chain = {{}, signer.minSdk, signer.maxSdk};
  for (const KeyReport& key : signer.chain) chain.keys.push_back(key.publicKeySha256);
  return chain;
}

std::string TextOf(const std::vector<KeyChain>& chains) {
  std::vector<std::string> texts;
  texts.reserve(chains.size());
  for (const KeyChain& chain : chains) {
    texts.push_back(fmt::format("sha256:{}", fmt::join(chain.keys, " then sha256:")));
  }
  return fmt::format("{}", fmt::join(texts, " and "));
}

SignerMatch Match(const std::vector<SignerReport>& signers, SdkRange levels,
                  const std::vector<ExpectedSigner>& expected) {
  std::vector<KeyChain> known;
  for (const ExpectedSigner& candidate : expected) {
    known.insert(known.end(), candidate.chains.begin(), candidate.chains.end());
  }
  for (const uint32_t sdk : LevelsToCompare(levels, known)) {
    const SignerMatch match = MatchAt(signers, sdk, expected);
    if (match != SignerMatch::kExpected) return match;
  }
  return SignerMatch::kExpected;
}

bool HaveSameSigners(const std::vector<SignerReport>& signers, SdkRange levels,
                     const std::vector<KeyChain>& chains) {
  std::vector<std::vector<std::string>> own;
  own.reserve(signers.size());
  for (const SignerReport& signer : signers) own.push_back(ChainOf(signer).keys);
  for (const uint32_t sdk : LevelsToCompare(levels, chains)) {
    std::vector<std::vector<std::string>> others;
    for (KeyChain& chain : ChainsFor(chains, sdk)) others.push_back(std::move(chain.keys));
    if (own.empty() || own != others) return false;
  }
  return true;
}

std::optional<std::string> ParseSha256(const std::string& text) {
  const std::optional<std::string> digits = DigitsIn(text);
  return digits && digits->size() == kSha256Digits ? digits : std::nullopt;
}

std::string WhyNotSha256(const std::string& text) {
  constexpr size_t kSha1Digits = 40;
  const std::optional<std::string> digits = DigitsIn(text);
  const std::string rule = fmt::format("a SHA-256 has {} hexadecimal digits", kSha256Digits);
  if (!digits || digits->empty()) return StartsWith(text, kSha256Prefix) ? rule : "";
  if (digits->size() == kSha256Digits) return "";
  if (digits->size() == kSha1Digits) return rule + ", and this is a SHA-1";
  return fmt::format("{}, and this has {}", rule, digits->size());
}

std::optional<std::string> KeyOfCertificate(const std::vector<uint8_t>& bytes) {
  const bssl::UniquePtr<BIO> text(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
  const auto read = [&] {
    return bssl::UniquePtr<X509>(PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr));
  };
  std::vector<uint8_t> der = bytes;
  if (const bssl::UniquePtr<X509> certificate = read()) {
    if (read()) return std::nullopt;
    uint8_t* encoded = nullptr;
    const int size = i2d_X509(certificate.get(), &encoded);
    const bssl::UniquePtr<uint8_t> owner(encoded);
    der.assign(encoded, encoded + std::max(size, 0));
  }
  X509Certificate certificate;
  std::vector<uint8_t> key;
  if (!certificate.Parse(der) || !certificate.GetPublicKey(key)) return std::nullopt;
  return Sha256Of(key);
}

}  // namespace Quill::Tool
