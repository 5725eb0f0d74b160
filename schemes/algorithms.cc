// SPDX-License-Identifier: Apache-2.0

#include "schemes/algorithms.h"

#include <openssl/nid.h>

#include <iterator>

#include "util/log.h"
#include "util/nothrow.h"

namespace Quill {
namespace {

template <typename Kind>
std::unique_ptr<Verifier> MakeVerifier() {
  return MakeUniqueNoThrow<Kind>();
}

struct SignatureAlgorithm {
  uint32_t id;                              // as signers name it
  int digestNid;                            // for Hash::CreateHashFromAlgoId
  std::unique_ptr<Verifier> (*verifier)();  // makes one without a key; null when out of memory
};

// All supported algorithms, the most preferred first.
constexpr SignatureAlgorithm kAlgorithms[] = {
    {0x0202, NID_sha512, MakeVerifier<ECDSAVerifier>},
    {0x0102, NID_sha512, MakeVerifier<RSAPSSVerifier>},
    {0x0104, NID_sha512, MakeVerifier<RSAVerifier>},
    {0x0201, NID_sha256, MakeVerifier<ECDSAVerifier>},
    {0x0101, NID_sha256, MakeVerifier<RSAPSSVerifier>},
    {0x0103, NID_sha256, MakeVerifier<RSAVerifier>},
    {0x0301, NID_sha256, MakeVerifier<DSAVerifier>},
};

constexpr bool AreIdsUnique() {
  for (size_t i = 0; i < std::size(kAlgorithms); ++i) {
    for (size_t j = 0; j < i; ++j) {
      if (kAlgorithms[i].id == kAlgorithms[j].id) return false;
    }
  }
  return true;
}
static_assert(AreIdsUnique());

// Returns the algorithm, or null.
const SignatureAlgorithm* FindAlgorithm(uint32_t id) {
  const size_t place = PreferenceOf(id);
  return place == kUnsupported ? nullptr : &kAlgorithms[place];
}

}  // namespace

size_t PreferenceOf(uint32_t algorithmId) {
  for (size_t i = 0; i < std::size(kAlgorithms); ++i) {
    if (kAlgorithms[i].id == algorithmId) return i;
  }
  return kUnsupported;
}

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
