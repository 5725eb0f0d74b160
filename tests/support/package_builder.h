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

// Returns a signing block around the bytes of its pairs.
ByteVector SigningBlock(const ByteVector& pairs);

// Builds a package: entries and pairs in the order of the calls, every signature valid for what is
// built. A package without pairs has no signing block.
class PackageBuilder {
 public:
  using Signers = std::vector<SignerOptions>;

  PackageBuilder& Entry(const std::string& name, const ByteVector& contents,
                        Compression compression = Compression::kStored);
  PackageBuilder& Manifest(const ByteVector& xml = ManifestXml("org.quillon.test")) {
    return Entry("AndroidManifest.xml", xml);
  }
  // Takes a whole archive, without a comment, in place of entries.
  PackageBuilder& Archive(const ByteVector& bytes) {
    archive_ = bytes;
    return *this;
  }
  // Adds the manifest, signature file and signature block over the entries added so far.
  PackageBuilder& JarSignature(const JarOptions& options = {});

  // Adds the pair of a scheme; `behind` follows its signers.
  PackageBuilder& V2(const Signers& signers = {{}}, const ByteVector& behind = {}) {
    return AddSigners(0x7109871a, /*isV3=*/false, signers, behind);
  }
  PackageBuilder& V3(const Signers& signers = {{}}, const ByteVector& behind = {}) {
    return AddSigners(0xf05368c0, /*isV3=*/true, signers, behind);
  }
  PackageBuilder& Pair(uint32_t id, const ByteVector& value) {
    pairs_.emplace_back(id, [=](const Regions&) { return value; });
    return *this;
  }
  // Sets the comment at the end of the file.
  PackageBuilder& Comment(const ByteVector& comment) {
    comment_ = comment;
    return *this;
  }

  ByteVector Build() const;

 private:
  using MakeValue = std::function<ByteVector(const Regions&)>;
  PackageBuilder& AddSigners(uint32_t id, bool isV3, const Signers& signers,
                             const ByteVector& behind) {
    pairs_.emplace_back(id, [=](const Regions& regions) {
      return Wire().Bytes(PairValue(isV3, signers, regions)).Bytes(behind);
    });
    return *this;
  }

  ByteVector archive_;
  std::vector<ZipFile> entries_;
  std::vector<std::pair<uint32_t, MakeValue>> pairs_;
  ByteVector comment_;
};

}  // namespace Quill
