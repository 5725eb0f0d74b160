// SPDX-License-Identifier: Apache-2.0

#include <openssl/evp.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <list>
#include <sstream>
#include <string>

#include <quillon/file.h>

#include "tests/support/notation.h"
#include "tests/support/package_builder.h"

// Writes a package for a transcript.
// usage: make_package FILE PART... [CHANGE...]
// Parts, in their order in the package:
//   entry=NAME=CONTENTS     an entry
//   deflated=NAME=FILE      an entry with the contents of a file
//   entries=NUMBER          as many entries
//   archive=FILE            the entries of an archive, which may be damaged
//   manifest=PACKAGE        AndroidManifest.xml
//   halyx=PACKAGE           the same with a permission of the Halyx feature
//   pairs=NUMBER            as many empty pairs in the signing block
//   pair=ID=BYTES           a pair in the signing block, in bytes as tests/support/notation.h says
//   v2[=NUMBER[=ZEROS]]     a v2 signature of as many signers, and zeros behind them
//   v3[=NUMBER]             a v3 signature behind a lineage of as many levels
//   v2=SIGNERS, v3=SIGNERS  a signature of signers between " & ", as SignerWith in signers.h says
//   jar                     a JAR signature, by these options in front of it:
//     key=NAME in tests/keys, certificate=NAME of the key of one more, signed-by=DIGEST of the
//     signature file, digest=NAME of the entries' digests, claim=SCHEMES that were used too,
//     claims=NUMBER of schemes without a name, sf=TEXT=OTHER replaces text in the signature file,
//     block=OFFSET inverts a bit of the signature block (a negative offset counts from its end)
// Changes to the signed package, where "directory+" stands for the offset of the central directory:
//   flip=[directory+]OFFSET inverts the lowest bit of a byte
//   put=[directory+]OFFSET=NUMBER
//                           overwrites four bytes
//   each-bit=[directory+]OFFSET[=STEP]
//                           writes FILE.N with bit N of the file inverted, for each STEPth bit from
//                           there on

namespace {

using namespace Quill;
using Text = const std::string&;

// Returns a signer behind as many keys, which differ only in their certificates.
SignerOptions BehindLineage(size_t levelCount) {
  const SigningKey& key = TestKey("p256-0");
  std::list<SigningKey> levels;
  std::vector<const SigningKey*> order;
  while (order.size() < levelCount) {
    levels.push_back({bssl::UpRef(key.key), key.publicKey, key.certificate, key.algorithmId});
    ByteVector& certificate = levels.back().certificate;
    Put(certificate, certificate.size() - 4, Wire().U32(order.size()));
    order.push_back(&levels.back());
  }
  SignerOptions signer;
  if (!order.empty()) {
    signer.certificates = {levels.back().certificate};
    signer.attributes = {LineageAttribute(Lineage(order))};
  }
  return signer;
}

// Returns whether there is such an option of JAR signatures.
bool Set(JarOptions& jar, Text option, Text name, Text value) {
  if (option == "key") {
    jar.key = &TestKey(name);
  } else if (option == "certificate") {
    jar.certificates.push_back(&TestKey(name));
  } else if (option == "signed-by") {
    jar.signatureDigest = EVP_get_digestbyname(name.c_str());
  } else if (option == "digest") {
    jar.digestName = name;
  } else if (option == "claim" || option == "claims") {
    jar.apkSigned = option == "claim" ? name : std::string(std::stoul(name), ',');
  } else if (option == "sf") {
    jar.editSignatureFile = [=](auto& file) { file.replace(file.find(name), name.size(), value); };
  } else if (option == "block") {
    const int offset = std::stoi(name);
    jar.editBlock = [=](auto& block) {
      *((offset < 0 ? block.end() : block.begin()) + offset) ^= 1;
    };
  } else {
    return false;
  }
  return true;
}

// Returns whether there is such a part.
bool Add(PackageBuilder& package, Text part, Text name, Text value) {
  static JarOptions jar;
  const auto number = [](Text text, size_t otherwise) {
    return text.empty() ? otherwise : std::stoul(text);
  };

  if (part == "entry") {
    package.Entry(name, Wire().Text(value));
  } else if (part == "deflated") {
    package.Entry(name, ReadFile(value), Compression::kDeflated);
  } else if (part == "archive") {
    package.Archive(ReadFile(name));
  } else if (part == "entries") {
    for (size_t i = 0; i < std::stoul(name); ++i) package.Entry(std::to_string(i), {'x'});
  } else if (part == "manifest" || part == "halyx") {
    package.Manifest(ManifestXml(name, part == "halyx"));
  } else if (part == "pairs") {
    for (uint32_t id = 0; id < std::stoul(name); ++id) package.Pair(id, {});
  } else if (part == "pair") {
    package.Pair(static_cast<uint32_t>(std::stoul(name, nullptr, 0)), Bytes(value, KnownBytes()));
  } else if ((part == "v2" || part == "v3") && !name.empty() && std::isdigit(name[0]) == 0) {
    PackageBuilder::Signers signers;
    const std::string all = name + "=" + value;
    for (Text parts : Split(all, " & ")) signers.push_back(SignerWith(parts));
    part == "v2" ? package.V2(signers) : package.V3(signers);
  } else if (part == "v2") {
    package.V2(PackageBuilder::Signers(number(name, 1)), ByteVector(number(value, 0)));
  } else if (part == "v3") {
    package.V3({BehindLineage(number(name, 0))});
  } else if (part == "jar") {
    package.JarSignature(jar);
  } else {
    return Set(jar, part, name, value);
  }
  return true;
}

void WriteFile(Text path, const ByteVector& bytes) {
  const auto* data = reinterpret_cast<const char*>(bytes.data());
  std::ofstream(path, std::ios::binary).write(data, static_cast<std::streamsize>(bytes.size()));
}

size_t Offset(const ByteVector& package, Text text) {
  const std::string directory = "directory+";
  if (text.compare(0, directory.size(), directory) != 0) return std::stoul(text);
  uint32_t offset;
  std::memcpy(&offset, &package[package.size() - 6], sizeof offset);
  return offset + std::stoul(text.substr(directory.size()));  // may be negative
}

// Returns whether there is such a change.
bool Change(ByteVector& package, Text file, Text change, size_t at, Text value) {
  if (change == "flip") {
    package.at(at) ^= 1;
  } else if (change == "put") {
    Put(package, at, Wire().U32(std::stoul(value)));
  } else if (change == "each-bit") {
    const size_t step = value.empty() ? 1 : std::stoul(value);
    for (size_t bit = at * 8; bit < package.size() * 8; bit += step) {
      ByteVector changed = package;
      changed[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
      WriteFile(file + "." + std::to_string(bit), changed);
    }
  } else {
    return false;
  }
  WriteFile(file, package);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  PackageBuilder builder;
  ByteVector package;
  for (int i = 2; i < argc; ++i) {
    std::istringstream argument(argv[i]);
    std::string step, name, value;
    std::getline(std::getline(std::getline(argument, step, '='), name, '='), value, '\0');
    if (package.empty() && Add(builder, step, name, value)) continue;
    if (package.empty()) package = builder.Build();
    if (!Change(package, argv[1], step, Offset(package, name), value)) {
      std::fprintf(stderr, "make_package: cannot understand %s\n", argv[i]);
      return 2;
    }
  }
  if (package.empty()) WriteFile(argv[1], builder.Build());
}
