// SPDX-License-Identifier: Apache-2.0

#include "crypto/x509_certificate.h"
#include "fuzz/der_mutator.h"
#include "fuzz/fixed_keys.h"
#include "fuzz/fuzzing.h"
#include "schemes/algorithms.h"
#include "tests/support/log_capture.h"
#include "util/byte_cursor.h"

using namespace Quill;  // NOLINT(google-build-using-namespace)

namespace {

constexpr const char* kKeyNames[] = {"rsa1128-0", "rsa2048-0", "dsa1024-0",
                                     "p256-0",    "p384-0",    "p521-0"};

// An input: the ID, then the others, each behind its 32-bit length.
struct SignedText {
  uint32_t algorithmId = kAlgorithmIds[0];
  ByteVector publicKey, signature, certificate, text;
};

bool Take(ByteCursor from, SignedText& out) {
  if (!from.TakeU32(out.algorithmId)) return false;
  for (ByteVector* field : {&out.publicKey, &out.signature, &out.certificate, &out.text}) {
    ByteCursor body;
    if (!from.TakeLengthValue(body)) return false;
    *field = body.ToVector();
  }
  return true;
}

ByteVector Written(const SignedText& signedText) {
  return Wire()
      .U32(signedText.algorithmId)
      .LengthPrefixed(signedText.publicKey)
      .LengthPrefixed(signedText.signature)
      .LengthPrefixed(signedText.certificate)
      .LengthPrefixed(signedText.text);
}

const SigningKey* FindKey(const ByteVector& publicKey) {
  for (const char* name : kKeyNames) {
    if (TestKey(name).publicKey == publicKey) return &TestKey(name);
  }
  return nullptr;
}

void SignAgain(SignedText& signedText) {
  const SigningKey* key = FindKey(signedText.publicKey);
  if (key == nullptr) return;
  signedText.signature = SignAnyway(*key, signedText.algorithmId, signedText.text);
}

SignedText Fresh(Random& random) {
  const SigningKey& key = TestKey(random.OneOf(kKeyNames));
  SignedText made{key.algorithmId, key.publicKey, {}, key.certificate, {'t', 'e', 'x', 't'}};
  if (random.OneIn(2)) made.algorithmId = random.OneOf(kAlgorithmIds);
  SignAgain(made);
  return made;
}

void CheckCertificate(const ByteVector& der) {
  X509Certificate certificate;
  ByteVector key = {1, 2, 3};
  const bool isParsed = certificate.Parse(der);
  if (!certificate.GetPublicKey(key)) {
    Require(key == ByteVector({1, 2, 3}), "without a key the output stays");
    return;
  }
  Require(isParsed && !key.empty(), "a key comes from a certificate");
  ByteVector again;
  Require(certificate.GetPublicKey(again) && again == key, "the key stays");
  size_t takenBy = 0;
  for (const uint32_t id : {0x0103U, 0x0201U, 0x0301U}) {
    takenBy += CreateVerifier(id)->Init(key, CreateHash(id)) ? 1 : 0;
  }
  Require(takenBy <= 1, "a key is of one kind");
}

bool IsVerified(const SignedText& signedText) {
  const std::unique_ptr<Verifier> verifier = CreateVerifier(signedText.algorithmId);
  if (!verifier->Init(signedText.publicKey, CreateHash(signedText.algorithmId))) return false;
  ByteVector bytes;
  Require(!verifier->GetPublicKey(bytes) || bytes.size() <= signedText.publicKey.size() * 2,
          "the bytes of a key come from the key");  // a compressed point is written in full
  return verifier->Verify(signedText.text, signedText.signature);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  LogCapture log;
  SignedText input;
  if (!Take({data, size}, input)) return 0;
  CheckCertificate(input.certificate);
  if (PreferenceOf(input.algorithmId) == kUnsupported) {
    Require(CreateVerifier(input.algorithmId) == nullptr, "an unknown algorithm has no verifier");
    return 0;
  }
  // A parameter of an attacker's key can make every signature good.
  if (!IsVerified(input) || FindKey(input.publicKey) == nullptr) return 0;
  input.text.push_back(0);
  Require(!IsVerified(input), "a changed text is refused");
  return 0;
}

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
  Random random(seed);
  SignedText input;
  if (!Take({data, size}, input) || random.OneIn(8)) input = Fresh(random);
  switch (random.Below(8)) {
    case 0:
      input.algorithmId = random.OneOf(kAlgorithmIds);
      SignAgain(input);
      break;
    case 1:
      MutateBytes(input.text);
      SignAgain(input);
      break;
    case 2:
    case 3:
      MutateDer(input.signature, random);
      break;
    case 4:
    case 5:
      MutateDer(input.publicKey, random);
      break;
    default:
      MutateDer(input.certificate, random);
      break;
  }
  return PutMutated(Written(input), data, size, maxSize);
}
