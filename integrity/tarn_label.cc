// SPDX-License-Identifier: Apache-2.0

#include <cstdlib>
#include <cstring>

#include <quillon/tarn.h>

namespace {

// One bit for each algorithm that a label may have: SHA-1, SHA-256 and SHA-512.
constexpr uint32_t kAlgorithmMask = 1u << TARN_SHA1 | 1u << TARN_SHA256 | 1u << TARN_SHA512;
static_assert(kAlgorithmMask == 0x54);

}  // namespace

uint32_t TarnLabelAlloc(const void* data, uint16_t length, TarnLabel** out) {
  if (out == nullptr || (data == nullptr && length != 0)) return TARN_BAD_ARGUMENT;

  auto* label = static_cast<TarnLabel*>(malloc(sizeof(TarnLabel) + length));
  if (label == nullptr) return TARN_NO_MEMORY;
  label->length = length;
  if (data != nullptr) memcpy(label->data, data, length);
  *out = label;
  return TARN_OK;
}

void TarnLabelFree(TarnLabel* label) { free(label); }

uint32_t TarnExLabelAlloc(uint32_t algorithm, const void* hash, uint16_t hashLength,
                          const void* extra, uint16_t extraLength, TarnExLabel** out) {
  if (hash == nullptr || out == nullptr) return TARN_BAD_ARGUMENT;
  if (extra == nullptr && extraLength != 0) return TARN_BAD_ARGUMENT;
  if (algorithm > TARN_SHA512 || (kAlgorithmMask >> algorithm & 1) == 0) return TARN_BAD_ARGUMENT;
  if (hashLength == 0 || hashLength > sizeof(TarnExLabel::hash)) return TARN_BAD_ARGUMENT;

  auto* label = static_cast<TarnExLabel*>(calloc(1, sizeof(TarnExLabel) + extraLength));
  if (label == nullptr) return TARN_NO_MEMORY;
  label->marker = 0xFFFF;
  label->version = 2;
  label->algorithm = static_cast<uint8_t>(algorithm);
  memcpy(label->hash, hash, hashLength);
  label->extraLength = extraLength;
  if (extra != nullptr) memcpy(label->extra, extra, extraLength);
  *out = label;
  return TARN_OK;
}

void TarnExLabelFree(TarnExLabel* label) { free(label); }
