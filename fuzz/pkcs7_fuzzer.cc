// SPDX-License-Identifier: Apache-2.0

#include "fuzz/der_mutator.h"
#include "fuzz/fixed_keys.h"
#include "fuzz/fuzzing.h"
#include "jar/pkcs7.h"
#include "jar/signature_file.h"
#include "tests/support/jar_signature.h"
#include "tests/support/log_capture.h"

using namespace Quill;  // NOLINT(google-build-using-namespace)

namespace {

// The signature file that the seeds and the mutator sign.
const ByteVector& SignatureFile() {
  static const ByteVector file = SignJar({})[1].contents;
  return file;
}

ByteVector FreshBlock(Random& random) {
  static const EVP_MD* const kDigests[] = {EVP_md5(), EVP_sha1(), EVP_sha256(), EVP_sha512()};
  static const SigningKey* const kKeys[] = {&TestKey("rsa1128-0"), &TestKey("dsa1024-0"),
                                            &TestKey("p256-0")};
  JarOptions options;
  options.key = random.OneOf(kKeys);
  // The crypto library makes no EC signature over MD5.
  if (options.key != kKeys[2]) options.signatureDigest = random.OneOf(kDigests);
  if (random.OneIn(4)) options.certificates = {random.OneOf(kKeys), options.key};
  return SignJar({}, options)[2].contents;
}

// Checks that the fields are in file order: each starts where the one before ends, or later.
void CheckFields(const uint8_t* data, size_t size, bool isParsed, const std::vector<CBS>& fields) {
  if (!isParsed) return;
  const uint8_t* cursor = data;
  for (const CBS& field : fields) {
    Require(CBS_data(&field) >= cursor, "fields follow each other");
    cursor = CBS_data(&field) + CBS_len(&field);
    Require(cursor <= data + size, "fields lie inside the block");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  LogCapture log;
  CBS input;
  CBS_init(&input, data, size);
  CBS digestAlgorithm;
  CBS signatureAlgorithm;
  CBS signature;
  const bool isParsed = parse_pkcs7(input, &digestAlgorithm, &signatureAlgorithm, &signature);
  Require(log.Take().empty() == isParsed, "a refusal, and nothing else, is logged");
  CheckFields(data, size, isParsed, {digestAlgorithm, signatureAlgorithm, signature});

  for (const bool isDsa : {false, true}) {
    const SignatureBlock block = {{data, data + size}, isDsa};
    ByteVector key;
    const bool isGood = VerifySignatureFile(block, SignatureFile(), "CERT.SF", key);
    Require(log.Take().empty() == isGood, "a refusal, and nothing else, is logged");
    Require(!isGood || isParsed, "only a parsed block verifies");
    // A parameter of an attacker's DSA key can make every signature good.
    if (!isGood || isDsa) continue;
    ByteVector changed = SignatureFile();
    changed[key.size() % changed.size()] ^= 1;
    Require(!VerifySignatureFile(block, changed, "CERT.SF", key), "a changed file is refused");
  }
  return 0;
}

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
  Random random(seed);
  if (random.OneIn(8)) return LLVMFuzzerMutate(data, size, maxSize);
  ByteVector block = random.OneIn(8) ? FreshBlock(random) : ByteVector(data, data + size);
  MutateDer(block, random);
  return PutMutated(block, data, size, maxSize);
}
