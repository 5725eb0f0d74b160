// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

namespace Quill {

// What is accepted by the rules and still worth knowing. cli/warnings.cc has the code and the words
// of each. `number` and `name` are those that Warn takes.
enum class Warning {
  // The library reports these.
  kRepeatedPair,             // number: the ID
  kFurtherSigners,           // number: how many, of v2
  kStrippedSchemeNamed,      // v2 names v3
  kLineageAlgorithmsDiffer,  // number: the level, from 1
  kSeveralCertificates,      // number: how many, in the signature block
  kWeakDigest,               // name: the digest
  // The tool finds these in what is accepted.
  kPartlyCovered,    // number: how many entries were not checked
  kNoClassesDex,     // number: the same
  kJarForTargetSdk,  // number: the target SDK level
  kSeveralFiles,     // number: how many signature files
  kRsaShort,         // number: the bits
  kDsaKey,
  kDebugCertificate,
  kEntriesInBlock,  // number: how many
  kTwoDirectories,  // number: how many more entries there are than the end record counts
};

// A signer that verified. The bytes are borrowed for the call.
struct SignerEvidence {
  const std::vector<uint8_t>& certificate;  // DER
  const std::vector<uint8_t>& publicKey;    // DER SubjectPublicKeyInfo
  uint32_t minSdk = 0;                      // both inclusive
  uint32_t maxSdk = std::numeric_limits<int32_t>::max();
  uint32_t algorithmId = 0;                             // of its signature; 0 for a JAR signature
  const std::vector<uint8_t>* contentDigest = nullptr;  // null for a JAR signature
};

// What the compiled manifest says, where it says it as a number.
struct ManifestFacts {
  std::optional<uint64_t> versionCode;  // with the major part in the upper half
  std::optional<uint32_t> minSdk;
  std::optional<uint32_t> targetSdk;
  std::optional<bool> isDebuggable;  // false where it says nothing
};

// The functions below take note of what the verifier accepts, on the calling thread. libquillon.so
// links log_only.cc, where they do nothing. The tool and the tests link recorder.cc.

// False where notes are not kept, so that nobody need prepare them.
bool IsRecording();
// A level of a lineage that verified, the oldest first. They belong to the signer accepted next.
void NoteLevel(const std::vector<uint8_t>& certificate, const std::vector<uint8_t>& publicKey,
               uint32_t flags);
void AcceptSigner(const SignerEvidence& signer);
// The SDK range of a v3 signer, which the package has whether it applies or not.
void NoteSdkRange(uint32_t minSdk, uint32_t maxSdk);
// The bytes of the APK Signing Block, from its first size to its magic.
void NoteSigningBlock(uint64_t offset, uint64_t size);
void NoteManifest(const ManifestFacts& facts);
void Warn(Warning warning, uint64_t number, std::string_view name = {});

}  // namespace Quill
