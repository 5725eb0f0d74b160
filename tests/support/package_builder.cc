// SPDX-License-Identifier: Apache-2.0

#include "tests/support/package_builder.h"

#include <ziparchive/zip_writer.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace Quill {
namespace {

// Returns the archive of the entries. It ends in an end record of 22 bytes, without a comment.
ByteVector Zip(const std::vector<ZipFile>& entries) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
  if (!file) throw std::runtime_error("tmpfile");
  ZipWriter writer(file.get());
  bool good = true;
  for (const ZipFile& entry : entries) {
    const bool isDeflated = entry.compression == Compression::kDeflated;
    good &= writer.StartEntry(entry.name, isDeflated ? ZipWriter::kCompress : 0) == 0 &&
            writer.WriteBytes(entry.contents.data(), entry.contents.size()) == 0 &&
            writer.FinishEntry() == 0;
  }
  good &= writer.Finish() == 0;
  ByteVector bytes(static_cast<size_t>(std::ftell(file.get())));
  std::rewind(file.get());
  good &= std::fread(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
  if (!good) throw std::runtime_error("zip writer");
  return bytes;
}

}  // namespace

ByteVector SigningBlock(const ByteVector& pairs) {
  const uint64_t size = pairs.size() + 24;
  return Wire().U64(size).Bytes(pairs).U64(size).Text("APK Sig Block 42");
}

PackageBuilder& PackageBuilder::Entry(const std::string& name, const ByteVector& contents,
                                      Compression compression) {
  entries_.push_back({name, contents, compression});
  return *this;
}

PackageBuilder& PackageBuilder::JarSignature(const JarOptions& options) {
  for (const ZipFile& file : SignJar(entries_, options)) entries_.push_back(file);
  return *this;
}

ByteVector PackageBuilder::Build() const {
  const ByteVector zip = archive_.empty() ? Zip(entries_) : archive_;
  const auto eocdStart = zip.end() - 22;
  uint32_t directoryOffset;
  std::memcpy(&directoryOffset, &*eocdStart + 16, sizeof directoryOffset);
  const auto directoryStart = zip.begin() + directoryOffset;
  ByteVector eocd = Wire().Bytes({eocdStart, zip.end()}).Bytes(comment_);
  Put(eocd, 20, Wire().U16(static_cast<uint16_t>(comment_.size())));
  const Regions regions = {{zip.begin(), directoryStart}, {directoryStart, eocdStart}, eocd};

  ByteVector block;
  if (!pairs_.empty()) {
    Wire pairs;
    for (const auto& [id, makeValue] : pairs_) {
      const ByteVector value = makeValue(regions);
      pairs.U64(4 + value.size()).U32(id).Bytes(value);
    }
    block = SigningBlock(pairs);
  }
  Put(eocd, 16, Wire().U32(directoryOffset + block.size()));
  return Wire().Bytes(regions[0]).Bytes(block).Bytes(regions[1]).Bytes(eocd);
}

}  // namespace Quill
