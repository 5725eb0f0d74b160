// SPDX-License-Identifier: Apache-2.0

#include "findings/recorder.h"

#include <algorithm>

namespace Quill {
namespace {

thread_local RefusalRecorder* threadRecorder = nullptr;

std::vector<uint8_t> Copy(const std::vector<uint8_t>* bytes) {
  return bytes == nullptr ? std::vector<uint8_t>() : *bytes;
}

}  // namespace

RefusalRecorder::RefusalRecorder() { threadRecorder = this; }

RefusalRecorder::~RefusalRecorder() { threadRecorder = nullptr; }

bool RefusalRecorder::Has(Reason reason) const {
  return std::any_of(refusals_.begin(), refusals_.end(),
                     [reason](const Refusal& refusal) { return refusal.reason == reason; });
}

bool Refuse(Reason reason, const Evidence& evidence) {
  if (threadRecorder == nullptr) return false;
  constexpr size_t kMostOfName = 256;  // a package can name things at any length
  threadRecorder->refusals_.push_back({reason, evidence.number,
                                       std::string(evidence.name.substr(0, kMostOfName)),
                                       Copy(evidence.expected), Copy(evidence.found)});
  return false;
}

}  // namespace Quill
