// SPDX-License-Identifier: Apache-2.0

// What a label is made from: the digest of the file, and the record itself.
#include <quillon/tarn.h>

#include "benchmarks/limit.h"
#include "integrity/file_signing.h"
#include "tests/support/temp_file.h"

namespace Quill {
namespace {

void FileDigest(benchmark::State& state) {
  const Fd file = MemoryFile(ByteVector(static_cast<size_t>(state.range(0)) << 20, 0x5a));
  RunAgainstLimit(state, EVP_sha1(), *MapFileRO(file.GetFd()), /*threads=*/1, [&] {
    std::vector<uint8_t> digest;
    if (!CalcHashFile(file.GetFd(), 0, digest)) state.SkipWithError("no digest");
  });
}
BENCHMARK(FileDigest)
    ->ArgName("MiB")
    ->Arg(1)
    ->Arg(64)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void BuildLabel(benchmark::State& state) {
  const ByteVector fileDigest(20);
  const ByteVector keyDigest(32);
  for ([[maybe_unused]] auto turn : state) {
    TarnExLabel* label = nullptr;
    if (TarnExLabelAlloc(TARN_SHA1, fileDigest.data(), 20, keyDigest.data(), 32, &label) != TARN_OK)
      state.SkipWithError("no label");
    TarnExLabelFree(label);
  }
}
BENCHMARK(BuildLabel);

}  // namespace
}  // namespace Quill
