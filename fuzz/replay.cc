// SPDX-License-Identifier: Apache-2.0

// Runs a target on files, and on all files of folders. Needs no libFuzzer.
// usage: NAME_replay PATH...

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "fuzz/fuzzing.h"

namespace fs = std::filesystem;

namespace {

bool Run(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  const Quill::ByteVector bytes{std::istreambuf_iterator<char>(file), {}};
  if (!file) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    return false;
  }
  // A block of exactly the input's size, so that a sanitizer detects a read of one byte too many.
  const auto block = std::make_unique<uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), block.get());
  LLVMFuzzerTestOneInput(block.get(), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    if (!fs::is_directory(argv[i])) {
      if (!Run(argv[i])) return 1;
      ++count;
      continue;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(argv[i])) {
      if (!Run(entry.path())) return 1;
      ++count;
    }
  }
  std::printf("%zu inputs\n", count);
  return count == 0 ? 1 : 0;
}
