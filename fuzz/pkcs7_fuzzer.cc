// SPDX-License-Identifier: Apache-2.0

#include "fuzz/fuzzing.h"
#include "jar/pkcs7.h"
#include "tests/support/log_capture.h"

using Quill::Require;

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Quill::LogCapture log;
  CBS input;
  CBS_init(&input, data, size);
  CBS digestAlgorithm;
  CBS signatureAlgorithm;
  CBS signature;
  const bool isParsed = parse_pkcs7(input, &digestAlgorithm, &signatureAlgorithm, &signature);
  Require(log.Take().empty() == isParsed, "a refusal, and nothing else, is logged");
  if (!isParsed) return 0;

  // The fields are in file order: each starts where the one before ends, or later.
  const uint8_t* cursor = data;
  for (const CBS& field : {digestAlgorithm, signatureAlgorithm, signature}) {
    Require(CBS_data(&field) >= cursor, "fields follow each other");
    cursor = CBS_data(&field) + CBS_len(&field);
    Require(cursor <= data + size, "fields lie inside the block");
  }
  return 0;
}
