#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/jar_signature.h"
#include "tests/support/manifest_xml.h"
#include "tests/support/signers.h"
#include "tests/support/wire.h"
#include "util/file.h"

namespace Quill {

// A signing block around the bytes of its pairs.
ByteVector SigningBlock(const ByteVector& pairs);

// Builds a package: entries and pairs in the order of the calls, every signature valid for what is
// built. A package without pairs has no signing block.
class PackageBuilder {
 public:
  PackageBuilder& Entry(const std::string& name, const ByteVector& contents,
                        Compression compression = Compression::kStored);
  PackageBuilder& Manifest(const ByteVector& xml = ManifestXml("org.quillon.test"));
  // Adds the manifest, signature file and signature block over the entries added so far.
  PackageBuilder& JarSignature(const JarOptions& options = {});

  // Pairs of the schemes; `behind` follows the sequence of signers.
  PackageBuilder& V2(const std::vector<SignerOptions>& signers = {{}},
                     const ByteVector& behind = {});
  PackageBuilder& V3(const std::vector<SignerOptions>& signers = {{}},
                     const ByteVector& behind = {});
  PackageBuilder& Pair(uint32_t id, const ByteVector& value);
  PackageBuilder& RawPair(uint64_t length, uint32_t id, const ByteVector& value);
  // Stands in the signing block's place, whatever pairs there are.
  PackageBuilder& RawBlock(const ByteVector& block);
  // The comment at the end of the file.
  PackageBuilder& Comment(const ByteVector& comment);

  ByteVector Build() const;
  std::shared_ptr<MapFile> Map() const;

 private:
  std::vector<ZipFile> entries_;
  std::vector<std::function<ByteVector(const Regions&)>> pairs_;
  ByteVector rawBlock_;
  ByteVector comment_;
};

}  // namespace Quill
