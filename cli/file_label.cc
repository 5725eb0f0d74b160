// SPDX-License-Identifier: Apache-2.0

#include "cli/file_label.h"

#include <fmt/format.h>

#include <cstring>
#include <vector>

#include <quillon/apk.h>
#include <quillon/digest.h>
#include <quillon/file.h>
#include <quillon/tarn.h>

#include "cli/log_recorder.h"
#include "cli/regular_file.h"
#include "simulator/label_store.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes ReadLabel(const std::string& file) {
  const RegularFile opened = OpenRegularFile(file);
  Bytes label;
  if (!opened.fd || tarnsim::LabelStore().Load(opened.fd->GetFd(), label) != 0) label.clear();
  return label;
}

std::string Hex(const Bytes& bytes) { return ToHex(bytes.data(), bytes.size()); }

// The digest algorithms of labels.
struct Algorithm {
  uint8_t id;
  const char* name;
  size_t size;  // bytes
};
constexpr Algorithm kAlgorithms[] = {
    {TARN_SHA1, "sha1", 20}, {TARN_SHA256, "sha256", 32}, {TARN_SHA512, "sha512", 64}};

const Algorithm* FindAlgorithm(uint8_t id) {
  for (const Algorithm& algorithm : kAlgorithms) {
    if (algorithm.id == id) return &algorithm;
  }
  return nullptr;
}

std::string DescribeFileDigest(const std::string& file, const Algorithm& algorithm,
                               const Bytes& digest) {
  std::string text = fmt::format("file {}:{}", algorithm.name, Hex(digest));
  if (algorithm.id != TARN_SHA1) return text;
  const LogRecorder unread;
  const RegularFile opened = OpenRegularFile(file);
  const auto mapping = opened.fd ? MapFileRO(opened.fd->GetFd()) : nullptr;
  if (!mapping) return text + " (the file cannot be read)";
  const Bytes now = ComputeSHA1Digest({mapping->Data(), mapping->Data() + mapping->Size()});
  return text + (now == digest ? " (matches the file)" : " (does NOT match the file)");
}

std::string DescribeKeyDigest(const std::string& package, const Bytes& digest) {
  if (digest.empty()) return "no key";
  std::string text = "key sha256:" + Hex(digest);
  if (package.empty()) return text;
  const LogRecorder unread;
  const RegularFile opened = OpenRegularFile(package);
  if (!opened.fd) return text + " (the package cannot be read)";
  const Apk apk(opened.fd->GetFd(), /*ignoreHalyxFilter=*/true);
  const bool same = ComputeSHA256Digest(apk.GetManufacturerKey()) == digest;
  return text + (same ? " (matches the package)" : " (does NOT match the package)");
}

}  // namespace

std::optional<std::string> DescribeLabel(const std::string& file, const std::string& package) {
  const Bytes bytes = ReadLabel(file);
  if (bytes.empty()) return std::nullopt;
  TarnExLabel label;
  if (bytes.size() < sizeof label) return "a label of another kind";
  std::memcpy(&label, bytes.data(), sizeof label);
  const Algorithm* algorithm = FindAlgorithm(label.algorithm);
  if (label.marker != 0xffff || algorithm == nullptr) return "a label of another kind";
  const Bytes digest(label.hash, label.hash + algorithm->size);
  const Bytes extra(bytes.begin() + sizeof label, bytes.end());
  return DescribeFileDigest(file, *algorithm, digest) + ", " + DescribeKeyDigest(package, extra);
}

}  // namespace Quill::Tool
