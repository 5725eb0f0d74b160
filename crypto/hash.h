// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <openssl/nid.h>
#include <openssl/sha.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "util/nothrow.h"

namespace Quill {

// A digest in progress. A new object is ready for Update. After Final, call Init before anything
// else. Only one thread at a time may use an object; Clone makes one for another thread.
//
// Algorithms are named by the crypto library's numeric identifiers (NID): 64 SHA-1, 672 SHA-256,
// 674 SHA-512. Virtual functions stand in binary order.
class Hash {
 public:
  // Starts over. This and Update return the crypto library's success value, 1.
  virtual int Init() = 0;
  virtual int Update(const void* data, size_t length) = 0;
  virtual int Update(const std::vector<uint8_t>& data) = 0;
  // Returns the digest of what Update was given.
  [[nodiscard]] virtual std::vector<uint8_t> Final() = 0;
  // Returns the algorithm's NID.
  virtual int Type() const = 0;
  // Returns an independent copy, digest in progress included; null when memory runs out.
  [[nodiscard]] virtual std::unique_ptr<Hash> Clone() = 0;
  // Calls Update, then Final. Deliberate: without Init, so earlier updates count.
  [[nodiscard]] virtual std::vector<uint8_t> Digest(const std::vector<uint8_t>& data);
  [[nodiscard]] virtual std::vector<uint8_t> Digest(const void* data, size_t length);
  virtual ~Hash() = default;

  // Returns a new object for one of the NIDs above. Null for any other NID, with one error line, or
  // when memory runs out, without one.
  [[nodiscard]] static std::unique_ptr<Hash> CreateHashFromAlgoId(int nid);
};

// Implements Hash for one context type of the crypto library and its functions.
template <typename Context, int kNid, size_t kDigestLength, int (*kInit)(Context*),
          int (*kUpdate)(Context*, const void*, size_t), int (*kFinal)(uint8_t*, Context*)>
class ContextHash : public Hash {
 public:
  ContextHash() { kInit(&context_); }
  int Init() override { return kInit(&context_); }
  int Update(const void* data, size_t length) override { return kUpdate(&context_, data, length); }
  int Update(const std::vector<uint8_t>& data) override { return Update(data.data(), data.size()); }
  std::vector<uint8_t> Final() override {
    std::vector<uint8_t> digest(kDigestLength);
    kFinal(digest.data(), &context_);
    return digest;
  }
  int Type() const override { return kNid; }
  std::unique_ptr<Hash> Clone() override { return MakeUniqueNoThrow<ContextHash>(*this); }

 private:
  Context context_{};
};

using HashSHA1 =
    ContextHash<SHA_CTX, NID_sha1, SHA_DIGEST_LENGTH, SHA1_Init, SHA1_Update, SHA1_Final>;
using HashSHA256 = ContextHash<SHA256_CTX, NID_sha256, SHA256_DIGEST_LENGTH, SHA256_Init,
                               SHA256_Update, SHA256_Final>;
using HashSHA512 = ContextHash<SHA512_CTX, NID_sha512, SHA512_DIGEST_LENGTH, SHA512_Init,
                               SHA512_Update, SHA512_Final>;

}  // namespace Quill
