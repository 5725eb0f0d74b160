// SPDX-License-Identifier: Apache-2.0

#include "fuzz/fixed_keys.h"

#include <openssl/evp.h>

#include <algorithm>

namespace Quill {

std::vector<std::string>& FixedKeyNames() {
  // The RSA key suits the largest digest.
  static std::vector<std::string> names = {"p256-0", "p256-1", "p256-2", "rsa1128-0"};
  return names;
}

const std::vector<SigningKey>& FixedKeys() {
  static const std::vector<SigningKey> keys = [] {
    std::vector<SigningKey> loaded;
    for (const std::string& name : FixedKeyNames()) loaded.push_back(LoadKey(name));
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
