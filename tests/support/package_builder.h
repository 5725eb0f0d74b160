// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/jar_signature.h"
#include "tests/support/manifest_xml.h"
#include "tests/support/signers.h"

namespace Quill {

// A signing block around the bytes of its pairs.
ByteVector SigningBlock(const ByteVector& pairs);

// Writes the package to a file with that many zeros in front of its signing block, where a
// signature covers them. They are a hole, which takes no space.
void WriteWithHole(const std::string& path, ByteVector package, uint32_t size);

// Builds a package: entries and pairs in the order of the calls, every signature valid for what is
// built. A package without pairs has no signing block.
class PackageBuilder {
 public:
  PackageBuilder& Entry(const std::string& name, const ByteVector& contents,
                        Compression compression = Compression::kStored);
  PackageBuilder& Manifest(const ByteVector& xml = ManifestXml("org.quillon.test")) {
    return Entry("AndroidManifest.xml", xml);
  }
  // Adds the manifest, signature file and signature block over the entries added so far.
  PackageBuilder& JarSignature(const JarOptions& options = {});

  // Pairs of the schemes; `behind` follows the sequence of signers.
  PackageBuilder& V2(const std::vector<SignerOptions>& signers = {{}},
                     const ByteVector& behind = {}) {
    return AddPair(0x7109871a, [=](const Regions& regions) {
      return Wire().Bytes(V2Value(signers, regions)).Bytes(behind);
    });
  }
  PackageBuilder& V3(const std::vector<SignerOptions>& signers = {{}},
                     const ByteVector& behind = {}) {
    return AddPair(0xf05368c0, [=](const Regions& regions) {
      return Wire().Bytes(V3Value(signers, regions)).Bytes(behind);
    });
  }
  PackageBuilder& Pair(uint32_t id, const ByteVector& value) {
    return AddPair(id, [=](const Regions&) { return value; });
  }
  // Stands in the signing block's place, whatever pairs there are.
  PackageBuilder& RawBlock(const ByteVector& block);
  // The comment at the end of the file.
  PackageBuilder& Comment(const ByteVector& comment);

  ByteVector Build() const;

 private:
  using MakeValue = std::function<ByteVector(const Regions&)>;
  PackageBuilder& AddPair(uint32_t id, const MakeValue& makeValue);

  std::vector<ZipFile> entries_;
  std::vector<std::pair<uint32_t, MakeValue>> pairs_;
  ByteVector rawBlock_;
  ByteVector comment_;
};

}  // namespace Quill
