// SPDX-License-Identifier: Apache-2.0

#include <openssl/md5.h>
#include <openssl/sha.h>

#include <quillon/digest.h>

namespace {

using OneShotDigest = uint8_t* (*)(const uint8_t* data, size_t length, uint8_t* out);

// `out` may be `in` itself: the digest is complete before `out` changes.
uint8_t* Compute(OneShotDigest digest, size_t size, const std::vector<uint8_t>& in,
                 std::vector<uint8_t>& out) {
  std::vector<uint8_t> result(size);
  digest(in.data(), in.size(), result.data());
  out = std::move(result);
  return out.data();
}

}  // namespace

uint8_t* ComputeSHA1Digest(const std::vector<uint8_t>& in, std::vector<uint8_t>& out) {
  return Compute(SHA1, SHA_DIGEST_LENGTH, in, out);
}

uint8_t* ComputeSHA256Digest(const std::vector<uint8_t>& in, std::vector<uint8_t>& out) {
  return Compute(SHA256, SHA256_DIGEST_LENGTH, in, out);
}

uint8_t* ComputeMD5Digest(const std::vector<uint8_t>& in, std::vector<uint8_t>& out) {
  return Compute(MD5, MD5_DIGEST_LENGTH, in, out);
}

std::vector<uint8_t> ComputeSHA1Digest(const std::vector<uint8_t>& in) {
  std::vector<uint8_t> out;
  ComputeSHA1Digest(in, out);
  return out;
}

std::vector<uint8_t> ComputeSHA256Digest(const std::vector<uint8_t>& in) {
  std::vector<uint8_t> out;
  ComputeSHA256Digest(in, out);
  return out;
}

std::vector<uint8_t> ComputeMD5Digest(const std::vector<uint8_t>& in) {
  std::vector<uint8_t> out;
  ComputeMD5Digest(in, out);
  return out;
}
