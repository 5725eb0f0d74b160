// SPDX-License-Identifier: Apache-2.0

#include "schemes/algorithms.h"

#include <openssl/nid.h>

#include "util/log.h"
#include "util/nothrow.h"

namespace Quill {
namespace {

template <typename Kind>
std::unique_ptr<Verifier> Make() {
  return MakeUniqueNoThrow<Kind>();
}

constexpr std::array<SignatureAlgorithm, 7> kAlgorithms = {{
    {0x0202, NID_sha512, Make<ECDSAVerifier>},
    {0x0102, NID_sha512, Make<RSAPSSVerifier>},
    {0x0104, NID_sha512, Make<RSAVerifier>},
    {0x0201, NID_sha256, Make<ECDSAVerifier>},
    {0x0101, NID_sha256, Make<RSAPSSVerifier>},
    {0x0103, NID_sha256, Make<RSAVerifier>},
    {0x0301, NID_sha256, Make<DSAVerifier>},
}};

// Returns the algorithm, or null.
const SignatureAlgorithm* FindAlgorithm(uint32_t id) {
  const auto* found = std::find_if(kAlgorithms.begin(), kAlgorithms.end(),
                                   [id](const auto& algorithm) { return algorithm.id == id; });
  return found == kAlgorithms.end() ? nullptr : found;
}

}  // namespace

const std::array<SignatureAlgorithm, 7>& SignatureAlgorithms() { return kAlgorithms; }

std::unique_ptr<Hash> CreateHash(uint32_t algorithmId) {
  const SignatureAlgorithm* algorithm = FindAlgorithm(algorithmId);
  if (algorithm == nullptr) {
    QUILL_LOGE("Not supported crypto algorithms for hash: 0x%x", algorithmId);
    return nullptr;
  }
  return Hash::CreateHashFromAlgoId(algorithm->digestNid);
}

std::unique_ptr<Verifier> CreateVerifier(uint32_t algorithmId) {
  const SignatureAlgorithm* algorithm = FindAlgorithm(algorithmId);
  if (algorithm == nullptr) {
    QUILL_LOGE("Not supported crypto algorithms for verifier: 0x%x", algorithmId);
    return nullptr;
  }
  return algorithm->verifier();
}

}  // namespace Quill
