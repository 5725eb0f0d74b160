// SPDX-License-Identifier: Apache-2.0

#include "findings/acceptance.h"
#include "findings/refusal.h"

namespace Quill {

void LookAtSigner(size_t /*index*/) {}

bool Refuse(Reason /*reason*/, const Evidence& /*evidence*/) { return false; }

bool IsRecording() { return false; }

void NoteLevel(const std::vector<uint8_t>& /*certificate*/,
               const std::vector<uint8_t>& /*publicKey*/, uint32_t /*flags*/) {}

void AcceptSigner(const SignerEvidence& /*signer*/) {}

void NoteSdkRange(uint32_t /*minSdk*/, uint32_t /*maxSdk*/) {}

void NoteSigningBlock(uint64_t /*offset*/, uint64_t /*size*/) {}

void NoteManifest(const ManifestFacts& /*facts*/) {}

void Warn(Warning /*warning*/, uint64_t /*number*/, std::string_view /*name*/) {}

}  // namespace Quill
