// SPDX-License-Identifier: Apache-2.0

#include <ziparchive/zip_archive.h>

#include <quillon/apk.h>

#include "fuzz/fixed_keys.h"
#include "fuzz/fuzzing.h"
#include "fuzz/package_mutator.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_file.h"

using Quill::Apk;
using Quill::ApkSignatureScheme;
using Quill::ByteVector;
using Quill::Random;
using Quill::Require;

namespace {

constexpr size_t kMostEntries = 16;  // each can take a thousand times its own size

// Extracts the entries and compares them with their digests.
void WalkEntries(Apk& apk) {
  void* cookie = nullptr;
  if (apk.StartIteration(&cookie, "", "") != 0) return;
  ZipEntry entry;
  std::string name;
  for (size_t i = 0; i < kMostEntries && apk.Next(cookie, &entry, name) == 0; ++i) {
    ByteVector contents;
    const int32_t result = apk.Extract(&entry, contents);
    const bool isVerified = apk.VerifyFileHash(name, &entry);
    Require(result == 0 || !isVerified || apk.CanSkipValidation(name),
            "what cannot be extracted is not verified");
  }
  apk.EndIteration(cookie);
}

bool IsRefused(const ByteVector& package) {
  const Quill::Fd file = Quill::MemoryFile(package);
  ApkSignatureScheme scheme = ApkSignatureScheme::kNone;
  std::vector<uint8_t> publicKey;
  return Apk::VerifyApkSignature(file.GetFd(), "package", scheme, publicKey) != 0;
}

// Checks that a changed bit in the entries or the central directory makes a good package be
// refused.
void CheckCoverage(const ByteVector& package) {
  auto parts = Quill::TakeApart(package);
  Require(parts.has_value(), "a good package has its parts");
  size_t pick = 0;
  for (const uint8_t byte : package) pick = pick * 31 + byte;
  ByteVector& region = parts->regions[pick / 8 % 2];
  if (region.empty()) return;
  region[pick / 16 % region.size()] ^= static_cast<uint8_t>(1U << pick % 8);
  Require(IsRefused(Quill::PutTogether(*parts)), "a package that changed is refused");
}

std::vector<Quill::ZipFile> ExtractFiles(const ByteVector& package) {
  std::vector<Quill::ZipFile> files;
  const Quill::Fd file = Quill::MemoryFile(package);
  Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
  void* cookie = nullptr;
  if (!apk.IsGoodZip() || apk.StartIteration(&cookie, "", "") != 0) return {};
  ZipEntry entry;
  std::string name;
  while (files.size() < kMostEntries && apk.Next(cookie, &entry, name) == 0) {
    ByteVector contents;
    const bool isSignature = name.rfind("META-INF/", 0) == 0;
    if (!isSignature && apk.Extract(&entry, contents) == 0) files.push_back({name, contents});
  }
  apk.EndIteration(cookie);
  return files;
}

// Builds the package again with a changed entry and new signatures. A part that is changed before
// it is signed leaves the later steps valid.
ByteVector Rebuild(const ByteVector& package, Random& random) {
  std::vector<Quill::ZipFile> files = ExtractFiles(package);
  if (!files.empty() && random.OneIn(2)) Quill::MutateBytes(random.OneOf(files).contents);
  if (random.OneIn(8)) files.push_back({"classes.dex", {'d', 'e', 'x'}});
  Quill::PackageBuilder builder;
  for (const Quill::ZipFile& file : files) {
    const bool isDeflated = random.OneIn(4);
    builder.Entry(file.name, file.contents,
                  isDeflated ? Quill::Compression::kDeflated : Quill::Compression::kStored);
  }

  const auto mutateText = [](std::string& text) {
    ByteVector bytes(text.begin(), text.end());
    Quill::MutateBytes(bytes);
    text.assign(bytes.begin(), bytes.end());
  };
  Quill::JarOptions options;
  options.key = &Quill::FixedKeys().back();
  options.isComplete = !random.OneIn(8);
  if (random.OneIn(4)) options.digestName = "SHA1";
  if (random.OneIn(8)) options.signatureDigest = EVP_sha512();
  if (random.OneIn(8)) options.certificates = {&random.OneOf(Quill::FixedKeys())};
  if (random.OneIn(4)) options.apkSigned = "2, 3";
  if (random.OneIn(3)) options.editManifest = mutateText;
  if (random.OneIn(3)) options.editSignatureFile = mutateText;
  if (random.OneIn(3)) options.editBlock = Quill::MutateBytes;
  if (!random.OneIn(4)) builder.JarSignature(options);
  Quill::SignerOptions signer;
  signer.key = &random.OneOf(Quill::FixedKeys());
  if (random.OneIn(4)) builder.V2({signer});
  if (random.OneIn(4)) builder.V3({signer});
  return builder.Build();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Quill::LogCapture log;
  const ByteVector package(data, data + size);
  const Quill::Fd file = Quill::MemoryFile(package);
  Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
  const bool isGood = apk.IsGoodApk();
  Require(isGood || !log.Take().empty(), "a refusal is logged");
  Require(isGood == apk.IsGoodApk(), "the answer stays");
  if (!isGood) return 0;

  Require(apk.IsGoodZip() && apk.IsApk(), "a good package is a package");
  Require(!apk.GetManufacturerKey().empty(), "a good package has a key");
  WalkEntries(apk);
  if (apk.GetApkSignatureSchemeVersion() != ApkSignatureScheme::kJar) CheckCoverage(package);
  return 0;
}

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
  Random random(seed);
  const ByteVector package(data, data + size);
  if (random.OneIn(4)) return LLVMFuzzerMutate(data, size, maxSize);
  auto parts = Quill::TakeApart(package);
  if (parts && random.OneIn(2)) {
    Quill::ChangeParts(*parts, random);
    return Quill::PutMutated(Quill::PutTogether(*parts), data, size, maxSize);
  }
  Quill::LogCapture log;
  return Quill::PutMutated(Rebuild(package, random), data, size, maxSize);
}
