// SPDX-License-Identifier: Apache-2.0

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include <quillon/file.h>

#include "tests/support/package_builder.h"

// Writes a package for a transcript.
// usage: make_package FILE PART... [CHANGE...]
// Parts, in their order in the package:
//   entry=NAME=CONTENTS     an entry
//   deflated=NAME=FILE      an entry with the contents of a file
//   manifest=PACKAGE        AndroidManifest.xml
//   halyx=PACKAGE           the same with a permission of the Halyx feature
//   jar, v2, v3             a signature of that kind
//   jar-of-v2               a JAR signature that says that scheme v2 was used too
//   jar-edited              a JAR signature whose signature file does not match the manifest
// Changes to the signed package, where "directory+" stands for the offset of the central directory:
//   flip=[directory+]OFFSET inverts the lowest bit of a byte
//   put=[directory+]OFFSET=NUMBER
//                           overwrites four bytes
//   each-bit=[directory+]OFFSET
//                           writes FILE.N with bit N of the file inverted, for each bit from there
//                           on
//   hole=SIZE               inserts zeros in front of the signing block; the last change

namespace {

using namespace Quill;
using Text = const std::string&;

// Returns whether there is such a part.
bool Add(PackageBuilder& package, Text part, Text name, Text value) {
  const XmlAttribute permission = {"name", std::string("com.vrk.android.SECURE_STORAGE")};
  JarOptions jar;
  if (part == "jar-of-v2") jar.apkSigned = "2";
  if (part == "jar-edited") jar.editSignatureFile = [](std::string& file) { file[60] ^= 1; };

  if (part == "entry") return package.Entry(name, Wire().Text(value)), true;
  if (part == "deflated") return package.Entry(name, ReadFile(value), Compression::kDeflated), true;
  if (part == "manifest") return package.Manifest(ManifestXml(name)), true;
  if (part == "halyx") {
    return package.Manifest(ManifestXml(name, {{"uses-permission", {permission}}})), true;
  }
  if (part == "v2") return package.V2(), true;
  if (part == "v3") return package.V3(), true;
  return part.substr(0, 3) == "jar" && (package.JarSignature(jar), true);
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
    for (size_t bit = at * 8; bit < package.size() * 8; ++bit) {
      ByteVector changed = package;
      changed[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
      WriteFile(file + "." + std::to_string(bit), changed);
    }
  } else if (change != "hole") {
    return false;
  }
  WriteFile(file, package);
  if (change == "hole") WriteWithHole(file, package, static_cast<uint32_t>(at));
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
