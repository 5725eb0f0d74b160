// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "crypto/hash.h"
#include "crypto/verifier.h"
#include "schemes/algorithms.h"
#include "schemes/signer_items.h"
#include "signing_block/raw_data.h"
#include "signing_block/zip_format.h"

namespace Quill {

// What the v2 and the v3 scheme share: the parsers of a signer's items, the table of algorithms,
// and the steps of a signer's verification.
//
// A block is made for one pair, then Parse, Verify and GetPublicKeys are called in this order, by
// one thread. Virtual functions stand in binary order.
//
// The pair lies in a mapped file that may change. Each length is read once and compared with what
// encloses it. What Verify looks at is copied by Parse: signed data, signatures and public keys.
class ApkSignatureBlockBase {
 public:
  // Scheme rules about the signed attributes; false logs one error line.
  virtual bool VerifyAttributes(const std::vector<Attribute>& attributes) = 0;
  // True when the first certificate carries `publicKey`, a DER SubjectPublicKeyInfo. The others are
  // not looked at. False logs one error line, after the certificate's own.
  virtual bool VerifyMainCertificate(const std::vector<std::vector<uint8_t>>& certificates,
                                     const std::vector<uint8_t>& publicKey) const;

  // `block` points at a whole pair and is borrowed, as are the bytes of `chunks`, the package's
  // digested regions. `length` is the pair's length as the caller read it and found it to fit;
  // without it Parse trusts the one in the pair.
  ApkSignatureBlockBase(const ApkSignatureBlock* block, std::vector<RawData> chunks,
                        std::optional<uint64_t> length = std::nullopt);
  ApkSignatureBlockBase(const ApkSignatureBlockBase&) = delete;
  ApkSignatureBlockBase& operator=(const ApkSignatureBlockBase&) = delete;
  virtual ~ApkSignatureBlockBase() = default;
  // Replaces `out` with the keys that Verify found; false when there are none.
  virtual bool GetPublicKeys(std::vector<std::vector<uint8_t>>& out);
  // Reads all signers; false logs one error line per level that failed and leaves no signers.
  virtual bool Parse() = 0;
  // Verifies the signers; false logs one error line for the step that failed. Keys found before a
  // failure stay.
  virtual bool Verify() = 0;

  // Parse the item or the sequence at a pointer; null is refused.
  static bool ParseDigestItem(const LengthValueItem* item, Digest& out);
  static bool ParseSignatureItem(const LengthValueItem* item, Signature& out);
  // What follows the item is not known here: the last four bytes of the value are zeros.
  static bool ParseAttributeItem(const LengthValueItem* item, Attribute& out);

  // Whole sequences. They append; records read before a bad one stay in `out`.
  static bool ParseDigests(const LengthValueItem* sequence, std::vector<Digest>& out);
  static bool ParseSignatures(const LengthValueItem* sequence, std::vector<Signature>& out);
  static bool ParseCerts(const LengthValueItem* sequence, std::vector<std::vector<uint8_t>>& out);
  // `following` counts the bytes behind the sequence that belong to the same signed data.
  static bool ParseAttributes(const LengthValueItem* sequence, std::vector<Attribute>& out,
                              uint64_t following = 0);

  // True when both list the same algorithms in the same order.
  static bool CompareOrder(const std::vector<Signature>& signatures,
                           const std::vector<Digest>& digests);

  // A digest object for the signature algorithm, or a verifier without a key; null for an unknown
  // ID, with one error line, or when it cannot be allocated, without one.
  static std::unique_ptr<Hash> CreateHashFromAlgoId(uint32_t id);
  static std::unique_ptr<Verifier> CreateVerifierFromAlgoId(uint32_t id);

  // The first entry with the most preferred algorithm, or the end when no entry's is supported.
  template <typename Record>
  static typename std::vector<Record>::const_iterator FindBestSupportedAlgoId(
      const std::vector<Record>& entries) {
    for (const SignatureAlgorithm& algorithm : SignatureAlgorithms()) {
      const auto found = std::find_if(
          entries.begin(), entries.end(),
          [&algorithm](const Record& entry) { return entry.algorithmId == algorithm.id; });
      if (found != entries.end()) return found;
    }
    return entries.end();
  }

  // The package's content digest, made with `hash`, which is only lent. False logs one error line.
  bool CalcTopDigestOfAPK(std::unique_ptr<Hash>& hash, std::vector<uint8_t>& topDigest);

 protected:
  // A signature that was found good: the digest object of its algorithm and the verifier that holds
  // the signer's key.
  struct VerifiedSignature {
    std::unique_ptr<Hash> hash;
    std::unique_ptr<Verifier> verifier;
  };

  // Parsing steps. They log one error line for the field that failed, if it is theirs.

  // Hands every signer of the pair's sequence to `parseSigner`, as much of it as lies in the pair,
  // until it answers false or a signer ends past the sequence. A signer that is not whole must be
  // refused.
  bool ParseSigners(const std::function<bool(ByteCursor signer, bool isWhole)>& parseSigner) const;
  // Takes the signed data at the start of a signer, as much of it as the signer holds.
  static std::vector<uint8_t> TakeSignedData(ByteCursor& signer);
  // Take the first, the next or the last fields of signed data or of a signer.
  static bool TakeDigestsAndCertificates(ByteCursor& signedData, std::vector<Digest>& digests,
                                         std::vector<std::vector<uint8_t>>& certificates);
  static bool TakeAttributes(ByteCursor& signedData, std::vector<Attribute>& attributes);
  // The key must end where the signer ends, so one that is not whole is refused.
  static bool TakeSignaturesAndPublicKey(ByteCursor& signer, bool isWhole,
                                         std::vector<Signature>& signatures,
                                         std::vector<uint8_t>& publicKey);

  // Verification steps, in the order of their use. Each logs one error line when it fails.

  // The best of `signatures` must be `publicKey`'s over `signedData`.
  static bool VerifySignature(const std::vector<Signature>& signatures,
                              const std::vector<uint8_t>& publicKey,
                              const std::vector<uint8_t>& signedData, VerifiedSignature& out);
  bool VerifySignedFields(const std::vector<std::vector<uint8_t>>& certificates,
                          const std::vector<uint8_t>& publicKey,
                          const std::vector<Attribute>& attributes);
  // The best of `digests` must be the package's content digest.
  bool VerifyContent(const std::vector<Signature>& signatures, const std::vector<Digest>& digests,
                     std::unique_ptr<Hash>& hash);
  bool StorePublicKey(const Verifier& verifier);

  std::vector<std::vector<uint8_t>>& PublicKeys() { return publicKeys_; }

 private:
  const ApkSignatureBlock* block_;
  std::vector<RawData> chunks_;
  std::vector<std::vector<uint8_t>> publicKeys_;
  std::optional<uint64_t> length_;
};

}  // namespace Quill
