// SPDX-License-Identifier: Apache-2.0

// Times packages from opening to verdict: large ones against the digest alone, and small ones.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include <quillon/apk.h>

#include "benchmarks/big_package.h"
#include "benchmarks/limit.h"
#include "signing_block/process_hashes.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_file.h"

namespace Quill {
namespace {

void Verify(benchmark::State& state, int fd, ApkSignatureScheme scheme) {
  Apk apk(fd, /*ignoreHalyxFilter=*/true);
  if (!apk.IsGoodApk() || apk.GetApkSignatureSchemeVersion() != scheme) {
    state.SkipWithError("not verified");
  }
}

BigSignature SignatureOf(const benchmark::State& state) {
  const bool isSha512 = state.range(1) == 512;
  return {static_cast<int>(state.range(0)), &TestKey("rsa2048-0"), isSha512 ? 0x0104u : 0x0103u};
}

const EVP_MD* ContentDigestAlgorithm(const benchmark::State& state) {
  return state.range(1) == 512 ? EVP_sha512() : EVP_sha256();
}

void VerifyBigPackage(benchmark::State& state) {
  const LogCapture log;
  const Fd file = BigPackage(static_cast<uint64_t>(state.range(2)) << 20, SignatureOf(state));
  const auto scheme = static_cast<ApkSignatureScheme>(state.range(0));
  RunAgainstLimit(state, ContentDigestAlgorithm(state), *MapFileRO(file.GetFd()),
                  ProcessHashes::GetNumThreads(), [&] { Verify(state, file.GetFd(), scheme); });
}
// The numbers of iterations are fixed, because a package takes longer to make than to verify.
void ForSchemesAndDigests(benchmark::internal::Benchmark* benchmark, int64_t mebibytes) {
  benchmark->ArgNames({"scheme", "sha", "MiB"})
      ->ArgsProduct({{2, 3}, {256, 512}, {mebibytes}})
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}
BENCHMARK(VerifyBigPackage)->Iterations(201)->Apply([](auto* b) { ForSchemesAndDigests(b, 1); });
BENCHMARK(VerifyBigPackage)->Iterations(15)->Apply([](auto* b) { ForSchemesAndDigests(b, 64); });
BENCHMARK(VerifyBigPackage)->Iterations(7)->Apply([](auto* b) { ForSchemesAndDigests(b, 512); });

// A package on a disk, whose cache may keep pages together. $TMPDIR must not be in memory.
class FileOnDisk {
 public:
  explicit FileOnDisk(const BigSignature& signature)
      : fd_(open((folder_.Path() + "/big.apk").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    WriteBigPackage(fd_.GetFd(), uint64_t{512} << 20, signature);
    fsync(fd_.GetFd());
  }
  int GetFd() const { return fd_.GetFd(); }

 private:
  const TempFolder folder_;
  const Fd fd_;
};

void VerifyFromDisk(benchmark::State& state) {
  const LogCapture log;
  const FileOnDisk file(SignatureOf(state));
  RunAgainstLimit(state, ContentDigestAlgorithm(state), *MapFileRO(file.GetFd()),
                  ProcessHashes::GetNumThreads(),
                  [&] { Verify(state, file.GetFd(), ApkSignatureScheme::kV3); });
}
BENCHMARK(VerifyFromDisk)
    ->ArgNames({"scheme", "sha"})
    ->ArgsProduct({{3}, {256, 512}})
    ->Iterations(7)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void OpenSample(benchmark::State& state, const char* name, ApkSignatureScheme scheme) {
  const LogCapture log;
  const auto file = OpenFileRO(std::string(QUILLON_SAMPLES_DIR "/") + name);
  for ([[maybe_unused]] auto turn : state) Verify(state, file->GetFd(), scheme);
}
BENCHMARK_CAPTURE(OpenSample, v1, "v1.apk", ApkSignatureScheme::kJar)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(OpenSample, v2, "v2.apk", ApkSignatureScheme::kV2)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(OpenSample, v3, "v3.apk", ApkSignatureScheme::kV3)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

}  // namespace
}  // namespace Quill
