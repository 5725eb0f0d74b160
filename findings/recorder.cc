// SPDX-License-Identifier: Apache-2.0

#include "findings/recorder.h"

#include <algorithm>
#include <utility>

namespace Quill {
namespace {

constexpr size_t kMostOfName = 256;  // a package can name things at any length

thread_local Findings* threadFindings = nullptr;
thread_local std::vector<AcceptedKey> threadLineage;  // of the signer that is accepted next
thread_local std::optional<size_t> threadSigner;      // that is looked at

std::vector<uint8_t> Copy(const std::vector<uint8_t>* bytes) {
  return bytes == nullptr ? std::vector<uint8_t>() : *bytes;
}

}  // namespace

bool Findings::Has(Reason reason) const {
  return std::any_of(refusals.begin(), refusals.end(),
                     [reason](const Refusal& refusal) { return refusal.reason == reason; });
}

FindingsRecorder::FindingsRecorder() {
  threadFindings = &findings_;
  threadLineage.clear();
  threadSigner.reset();
}

FindingsRecorder::~FindingsRecorder() { threadFindings = nullptr; }

void LookAtSigner(size_t index) { threadSigner = index; }

bool Refuse(Reason reason, const Evidence& evidence) {
  if (threadFindings == nullptr) return false;
  threadFindings->refusals.push_back({reason, evidence.number, evidence.second,
                                      std::string(evidence.name.substr(0, kMostOfName)),
                                      Copy(evidence.expected), Copy(evidence.found), threadSigner});
  return false;
}

bool IsRecording() { return threadFindings != nullptr; }

void NoteLevel(const std::vector<uint8_t>& certificate, const std::vector<uint8_t>& publicKey,
               uint32_t flags) {
  if (threadFindings != nullptr) threadLineage.push_back({certificate, publicKey, flags});
}

void AcceptSigner(const SignerEvidence& signer) {
  if (threadFindings == nullptr) return;
  std::vector<AcceptedKey> chain = std::exchange(threadLineage, {});
  if (chain.empty()) chain.push_back({signer.certificate, signer.publicKey, 0});
  threadFindings->signers.push_back({std::move(chain), signer.minSdk, signer.maxSdk,
                                     signer.algorithmId, Copy(signer.contentDigest)});
}

void NoteSdkRange(uint32_t minSdk, uint32_t maxSdk) {
  if (threadFindings != nullptr) threadFindings->ranges.push_back({minSdk, maxSdk});
}

void NoteSigningBlock(uint64_t offset, uint64_t size) {
  if (threadFindings == nullptr) return;
  threadFindings->blockOffset = offset;
  threadFindings->blockSize = size;
}

void NoteManifest(const ManifestFacts& facts) {
  if (threadFindings != nullptr) threadFindings->manifest = facts;
}

void Warn(Warning warning, uint64_t number, std::string_view name) {
  if (threadFindings == nullptr) return;
  std::vector<WarningNote>& notes = threadFindings->warnings;
  // Not compared with them all: a package can cause as many as it has bytes.
  const bool isKnown = !notes.empty() && notes.back().warning == warning &&
                       notes.back().number == number && notes.back().name == name;
  if (!isKnown) notes.push_back({warning, number, std::string(name.substr(0, kMostOfName))});
}

}  // namespace Quill
