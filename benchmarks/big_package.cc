// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/big_package.h"

#include <sys/stat.h>
#include <unistd.h>
#include <ziparchive/zip_writer.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <system_error>

#include "crypto/hash.h"
#include "schemes/algorithms.h"
#include "signing_block/process_hashes.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"

namespace Quill {
namespace {

constexpr uint64_t kMebibyte = 1 << 20;
constexpr size_t kEndRecordSize = 22;

void Require(bool done) {
  if (!done) throw std::system_error(errno, std::generic_category(), "big package");
}

void WriteArchive(int fd, uint64_t entrySize) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(fdopen(dup(fd), "w"), std::fclose);
  Require(file != nullptr);
  ZipWriter writer(file.get());
  const ByteVector manifest = ManifestXml("org.quillon.big");
  Require(writer.StartEntry("AndroidManifest.xml", 0) == 0 &&
          writer.WriteBytes(manifest.data(), manifest.size()) == 0 && writer.FinishEntry() == 0);

  std::mt19937_64 random;  // the same bytes every time
  std::vector<uint64_t> piece(kMebibyte / sizeof(uint64_t));
  Require(writer.StartEntry("assets/payload", 0) == 0);
  while (entrySize != 0) {
    std::generate(piece.begin(), piece.end(), std::ref(random));
    const uint64_t length = std::min(entrySize, kMebibyte);
    Require(writer.WriteBytes(piece.data(), length) == 0);
    entrySize -= length;
  }
  Require(writer.FinishEntry() == 0 && writer.Finish() == 0);
}

uint32_t DirectoryOffset(const MapFile& archive) {
  uint32_t offset;
  std::memcpy(&offset, archive.Data() + archive.Size() - 6, sizeof offset);
  return offset;
}

// Moves the central directory and the end record, which follows it, and puts `between` in front of
// them.
void MoveDirectory(int fd, const MapFile& archive, uint64_t newOffset, const ByteVector& between) {
  ByteVector tail(archive.Data() + DirectoryOffset(archive), archive.Data() + archive.Size());
  Put(tail, tail.size() - 6, Wire().U32(newOffset));
  const ByteVector end = Wire().Bytes(between).Bytes(tail);
  const auto offset = static_cast<off_t>(newOffset - between.size());
  Require(pwrite(fd, end.data(), end.size(), offset) == static_cast<ssize_t>(end.size()));
}

// Returns the content digest of an archive whose end record has no comment.
ByteVector DigestOfContent(const MapFile& archive, uint64_t directoryOffset, uint32_t algorithmId) {
  std::vector<RawData> chunks;
  const auto append = [&](uint64_t offset, uint64_t end) {
    for (; offset < end; offset += kMebibyte) {
      chunks.push_back({archive.Data() + offset, std::min(kMebibyte, end - offset)});
    }
  };
  append(0, directoryOffset);
  append(directoryOffset, archive.Size() - kEndRecordSize);
  append(archive.Size() - kEndRecordSize, archive.Size());
  auto hash = CreateHash(algorithmId);
  ProcessHashes digest(chunks);
  Require(digest.Run(hash));
  return digest.TopDigest();
}

void Sign(int fd, const BigSignature& signature) {
  const auto archive = MapFileRO(fd);
  Require(archive != nullptr);
  const uint32_t directoryOffset = DirectoryOffset(*archive);

  SignerOptions signer;
  signer.key = signature.key;
  signer.signatureAlgorithms = {signature.algorithmId};
  signer.contentDigest = DigestOfContent(*archive, directoryOffset, signature.algorithmId);
  const bool isV3 = signature.scheme == 3;
  const ByteVector value = PairValue(isV3, {signer}, {});
  const ByteVector block =
      SigningBlock(Wire().U64(4 + value.size()).U32(isV3 ? 0xf05368c0 : 0x7109871a).Bytes(value));
  MoveDirectory(fd, *archive, directoryOffset + block.size(), block);
}

}  // namespace

void WriteBigPackage(int fd, uint64_t size, const BigSignature& signature) {
  WriteArchive(fd, size);
  Sign(fd, signature);
}

void WriteHollowPackage(int fd, uint64_t size, const BigSignature& signature) {
  WriteArchive(fd, 0);
  const auto archive = MapFileRO(fd);
  Require(archive != nullptr);
  MoveDirectory(fd, *archive, DirectoryOffset(*archive) + size, {});
  Sign(fd, signature);
}

Fd BigPackage(uint64_t size, const BigSignature& signature) {
  const int fd = dup(MemoryFile({}).GetFd());
  Require(fd >= 0);
  WriteBigPackage(fd, size, signature);
  return Fd(fd);
}

}  // namespace Quill
