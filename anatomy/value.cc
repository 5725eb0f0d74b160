// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "anatomy/certificate_facts.h"
#include "anatomy/field.h"
#include "util/text.h"

namespace Quill::Anatomy {
namespace {

struct KnownId {
  uint32_t id;
  std::string_view name;
};

constexpr KnownId kPairs[] = {
    {0x7109871a, "APK Signature Scheme v2"},   {0xf05368c0, "APK Signature Scheme v3"},
    {0x1b93ad61, "APK Signature Scheme v3.1"}, {0x42726577, "padding"},
    {0x2b09189e, "source stamp v1"},           {0x6dff800d, "source stamp v2"},
    {0x504b4453, "dependency metadata"},
};

constexpr KnownId kAlgorithmNames[] = {
    {0x0101, "RSA PSS with SHA-256"},
    {0x0102, "RSA PSS with SHA-512"},
    {0x0103, "RSA PKCS #1 v1.5 with SHA-256"},
    {0x0104, "RSA PKCS #1 v1.5 with SHA-512"},
    {0x0201, "ECDSA with SHA-256"},
    {0x0202, "ECDSA with SHA-512"},
    {0x0301, "DSA with SHA-256"},
    {0x0421, "RSA PKCS #1 v1.5 with SHA-256, fs-verity"},
    {0x0423, "ECDSA with SHA-256, fs-verity"},
    {0x0425, "DSA with SHA-256, fs-verity"},
};

constexpr KnownId kAttributes[] = {
    {0xbeeff00d, "stripping protection"},
    {0x3ba06f8c, "proof of rotation"},
    {0x559f8b02, "rotation from this SDK level on"},
    {0xc2a6b3ba, "rotation on development releases"},
};

template <size_t count>
std::string_view NameIn(const KnownId (&known)[count], uint32_t id) {
  const auto* found = std::find_if(std::begin(known), std::end(known),
                                   [id](const KnownId& one) { return one.id == id; });
  return found == std::end(known) ? std::string_view() : found->name;
}

std::string WithName(std::string text, std::string_view name) {
  if (!name.empty()) text.append(" (").append(name).append(")");
  return text;
}

std::string HexNumber(uint64_t number, uint64_t size) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%0*llx", static_cast<int>(2 * size),
                static_cast<unsigned long long>(number));
  return text;
}

// Two times two bytes: seconds of two, minutes and hours; days, months and years.
std::string TimeText(uint64_t number) {
  const auto part = [number](int shift, int bits) {
    return static_cast<unsigned>(number >> shift & ((1U << bits) - 1));
  };
  char text[40];
  std::snprintf(text, sizeof text, "%u-%02u-%02u %02u:%02u:%02u", 1980 + part(25, 7), part(21, 4),
                part(16, 5), part(11, 5), part(5, 6), 2 * part(0, 5));
  return text;
}

std::string MethodText(uint64_t number) {
  return WithName(std::to_string(number), number == 0   ? "stored"
                                          : number == 8 ? "deflated"
                                                        : "unknown");
}

std::string_view TextIn(ByteCursor bytes, uint64_t most) {
  return {reinterpret_cast<const char*>(bytes.Data()), std::min(bytes.Remaining(), most)};
}

// Joins the lines of an attribute: those after the first start with a blank.
std::string JoinLines(std::string_view text) {
  std::string joined;
  bool isAfterBreak = false;
  for (const char c : text) {
    const bool isBreak = c == '\n' || c == '\r';
    if (!isBreak && !(isAfterBreak && c == ' ')) joined += c;
    isAfterBreak = isBreak;
  }
  return joined;
}

}  // namespace

std::string_view PairName(uint32_t id) { return NameIn(kPairs, id); }
std::string_view AlgorithmName(uint32_t id) { return NameIn(kAlgorithmNames, id); }
std::string_view AttributeName(uint32_t id) { return NameIn(kAttributes, id); }

ByteCursor BytesOf(const Field& field, ByteCursor bytes) {
  static_cast<void>(bytes.TakeAtMost(field.offset));
  return bytes.TakeAtMost(field.size);
}

uint64_t NumberIn(const Field& field, ByteCursor bytes) {
  const ByteCursor own = BytesOf(field, bytes);
  uint64_t number = 0;
  if (own.Remaining() <= sizeof number && own.Remaining() != 0) {
    std::memcpy(&number, own.Data(), own.Remaining());
  }
  return number;
}

std::optional<Value> ValueOf(const Field& field, ByteCursor bytes) {
  constexpr uint64_t kMostBytes = 64;   // a digest; signatures and keys are no reading matter
  constexpr uint64_t kMostText = 4096;  // more than names have
  if (field.extras && !field.extras->text.empty()) return field.extras->text;
  if (field.size == 0) return std::nullopt;
  const ByteCursor own = BytesOf(field, bytes);
  const uint64_t number = NumberIn(field, bytes);
  const auto id = static_cast<uint32_t>(number);
  switch (field.shape) {
    case Shape::kGroup:
      return std::nullopt;
    case Shape::kNumber:
      return number;
    case Shape::kId:
      return HexNumber(number, field.size);
    case Shape::kTime:
      return TimeText(number);
    case Shape::kMethod:
      return MethodText(number);
    case Shape::kAlgorithm:
      return WithName(HexNumber(number, 2), AlgorithmName(id));
    case Shape::kPairId:
      return WithName(HexNumber(number, 4), PairName(id));
    case Shape::kAttributeId:
      return WithName(HexNumber(number, 4), AttributeName(id));
    case Shape::kText:
      return std::string(TextIn(own, kMostText));
    case Shape::kLine:
      return JoinLines(TextIn(own, kMostText));
    case Shape::kCertificate: {
      const auto facts = ReadCertificate(own);
      return facts ? facts->subject : "not a certificate";
    }
    case Shape::kPublicKey: {
      const auto facts = ReadPublicKey(own);
      return facts ? facts->type + " " + std::to_string(facts->bits) : "not a public key";
    }
    case Shape::kBytes:
      if (own.Remaining() > kMostBytes) return std::nullopt;
      return ToHex(own.Data(), own.Remaining());
  }
  return std::nullopt;
}

std::string ValueText(const Field& field, ByteCursor bytes) {
  const std::optional<Value> value = ValueOf(field, bytes);
  if (!value) return "";
  const auto* number = std::get_if<uint64_t>(&*value);
  return number != nullptr ? std::to_string(*number) : std::get<std::string>(*value);
}

}  // namespace Quill::Anatomy
