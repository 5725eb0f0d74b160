// SPDX-License-Identifier: Apache-2.0

#include "crypto/hash.h"

#include "util/log.h"

namespace Quill {

std::vector<uint8_t> Hash::Digest(const std::vector<uint8_t>& data) {
  Update(data);
  return Final();
}

std::vector<uint8_t> Hash::Digest(const void* data, size_t length) {
  Update(data, length);
  return Final();
}

std::unique_ptr<Hash> Hash::CreateHashFromAlgoId(int nid) {
  switch (nid) {
    case NID_sha1:
      return MakeUniqueNoThrow<HashSHA1>();
    case NID_sha256:
      return MakeUniqueNoThrow<HashSHA256>();
    case NID_sha512:
      return MakeUniqueNoThrow<HashSHA512>();
    default:
      QUILL_LOGE("Not supported crypto algorithms for hash: %d", nid);
      return nullptr;
  }
}

}  // namespace Quill
