// SPDX-License-Identifier: Apache-2.0

#include "fuzz/fixed_keys.h"

#include <openssl/evp.h>

#include <algorithm>

namespace Quill {

const std::vector<SigningKey>& FixedKeys() {
  static const std::vector<SigningKey> keys = [] {
    std::vector<SigningKey> loaded;
    for (const char* name : {"p256-0", "p256-1", "p256-2"}) loaded.push_back(LoadKey(name));
    loaded.push_back(LoadKey("rsa1128-0"));  // suits the largest digest
    return loaded;
  }();
  return keys;
}

const SigningKey* FindFixedKey(const ByteVector& publicKey) {
  const auto found =
      std::find_if(FixedKeys().begin(), FixedKeys().end(),
                   [&publicKey](const SigningKey& key) { return key.publicKey == publicKey; });
  return found == FixedKeys().end() ? nullptr : &*found;
}

ByteVector SignAnyway(const SigningKey& key, uint32_t algorithmId, const ByteVector& data) {
  const bool isRsa = EVP_PKEY_id(key.key.get()) == EVP_PKEY_RSA;
  return isRsa ? Sign(key, algorithmId, data) : Sign(key, AlgorithmDigest(algorithmId), data);
}

}  // namespace Quill
