// SPDX-License-Identifier: Apache-2.0

// Times the JAR signature for several numbers of sections and entries, and the digest of one large
// entry.
#include <quillon/apk.h>

#include "benchmarks/limit.h"
#include "tests/support/log_capture.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"

namespace Quill {
namespace {

// Counts seconds per section or entry. They are the same for every count if the cost is linear.
benchmark::Counter PerItem(const benchmark::State& state) {
  return {static_cast<double>(state.range(0)),
          benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert};
}

void LoadManifest(benchmark::State& state) {
  std::string text = "Manifest-Version: 1.0\r\n\r\n";
  for (int64_t i = 0; i < state.range(0); ++i) {
    text += "Name: res/drawable/entry" + std::to_string(i) +
            ".png\r\nSHA-256-Digest: jXBb5Qh2tCc3WNKDKCPyVBWE2H5mZRbHGLNQUVc4Wcg=\r\n\r\n";
  }
  for ([[maybe_unused]] auto turn : state) {
    ManifestMf manifest;
    if (!manifest.load(text)) state.SkipWithError("not loaded");
  }
  state.counters["per_section"] = PerItem(state);
}
BENCHMARK(LoadManifest)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void OpenJarSigned(benchmark::State& state) {
  PackageBuilder builder;
  builder.Manifest();
  for (int64_t i = 0; i < state.range(0); ++i)
    builder.Entry("res/drawable/entry" + std::to_string(i) + ".png", {1, 2, 3});
  const Fd file = MemoryFile(builder.JarSignature().Build());
  const LogCapture log;
  for ([[maybe_unused]] auto turn : state) {
    Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
    if (!apk.IsGoodApk()) state.SkipWithError("not verified");
  }
  state.counters["per_entry"] = PerItem(state);
}
BENCHMARK(OpenJarSigned)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void EntryDigest(benchmark::State& state) {
  const ByteVector contents(64 << 20, 0x5a);
  const Fd file = MemoryFile(
      PackageBuilder().Manifest().Entry("assets/large", contents).JarSignature().Build());
  const LogCapture log;
  Apk apk(file.GetFd(), /*ignoreHalyxFilter=*/true);
  RunAgainstLimit(state, EVP_sha256(), *MapFileRO(MemoryFile(contents).GetFd()), /*threads=*/1,
                  [&] {
                    if (!apk.VerifyFileHash("assets/large")) state.SkipWithError("not verified");
                  });
}
BENCHMARK(EntryDigest)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace Quill
