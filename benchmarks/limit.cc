// SPDX-License-Identifier: Apache-2.0

#include "benchmarks/limit.h"

#include <thread>

namespace Quill {

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void DigestAlone(const EVP_MD* md, const MapFile& bytes, unsigned int threads) {
  constexpr uint64_t kPiece = 1 << 20;
  const uint64_t pieces = (bytes.Size() + kPiece - 1) / kPiece;
  threads = static_cast<unsigned int>(std::min<uint64_t>(threads, pieces));
  std::vector<std::thread> workers;
  for (unsigned int i = 0; i < threads; ++i) {
    workers.emplace_back([=, &bytes] {
      uint8_t digest[EVP_MAX_MD_SIZE];
      for (uint64_t piece = pieces * i / threads; piece < pieces * (i + 1) / threads; ++piece) {
        const uint64_t offset = piece * kPiece;
        const uint64_t length = std::min(kPiece, bytes.Size() - offset);
        EVP_Digest(bytes.Data() + offset, length, digest, nullptr, md, nullptr);
      }
    });
  }
  for (std::thread& worker : workers) worker.join();
}

}  // namespace Quill
