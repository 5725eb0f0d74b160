// SPDX-License-Identifier: Apache-2.0

// Writes packages that the mutator of the target `apk` makes from good ones, as 00000.apk and so
// on. The same arguments give the same packages, but for the random part of EC and DSA signatures.
// usage: random_packages FOLDER COUNT SEED

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "fuzz/fixed_keys.h"
#include "fuzz/fuzzing.h"
#include "fuzz/seed_packages.h"

using namespace Quill;  // NOLINT(google-build-using-namespace)

namespace {

constexpr size_t kMostBytes = 1 << 16;
Random changes(0);  // of LLVMFuzzerMutate

}  // namespace

// Stands in for libFuzzer's: changes a few bytes, puts some in, or takes some out.
size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize) {
  ByteVector bytes(data, data + size);
  for (size_t count = 1 + changes.Below(3); count != 0; --count) {
    const auto at = bytes.begin() + static_cast<ptrdiff_t>(changes.Below(bytes.size() + 1));
    const auto piece = std::min(bytes.end() - at, static_cast<ptrdiff_t>(1 + changes.Below(8)));
    switch (changes.Below(4)) {
      case 0:
        bytes.insert(at, changes.Below(8), static_cast<uint8_t>(changes.Below(256)));
        break;
      case 1:
        bytes.erase(at, at + piece);
        break;
      default:
        if (at == bytes.end()) break;
        *at = static_cast<uint8_t>(changes.OneIn(2) ? changes.Below(256)
                                                    : *at ^ size_t{1} << changes.Below(8));
        break;
    }
  }
  bytes.resize(std::min(bytes.size(), maxSize));
  std::copy(bytes.begin(), bytes.end(), data);
  return bytes.size();
}

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const size_t count = std::strtoul(argv[2], nullptr, 10);
  Random random(static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10)));
  changes = random;
  // Their certificates have what every reader asks for, such as an issuer.
  FixedKeyNames() = {"p256-debug", "p384-0", "p521-0", "rsa2048-0"};
  const std::vector<ByteVector> seeds = SeedPackages();
  for (size_t i = 0; i < count; ++i) {
    ByteVector package = random.OneOf(seeds);
    size_t size = package.size();
    package.resize(kMostBytes);
    for (size_t steps = 1 + random.Below(2); steps != 0; --steps) {
      const auto seed = static_cast<unsigned>(random.Below(1U << 31));
      size = LLVMFuzzerCustomMutator(package.data(), size, kMostBytes, seed);
    }
    char name[32];
    std::snprintf(name, sizeof name, "%05zu.apk", i);
    std::ofstream file(std::filesystem::path(argv[1]) / name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(package.data()), static_cast<ptrdiff_t>(size));
    if (!file) return 1;
  }
  return 0;
}
