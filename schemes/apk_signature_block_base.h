// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "crypto/hash.h"
#include "crypto/verifier.h"
#include "schemes/algorithms.h"
#include "schemes/signer_items.h"
#include "schemes/verification_steps.h"
#include "signing_block/raw_data.h"
#include "signing_block/zip_format.h"
#include "util/byte_cursor.h"
#include "util/file_pages.h"

namespace Quill {

// The common base of the v2 and the v3 verifier. It keeps the pair to verify, the package's
// digested regions and the public keys that verification finds. Most of its functions delegate:
// to signer_items.h, which parses items and sequences, to algorithms.h, which lists the signature
// algorithms, and to verification_steps.h. What signers' fields have in common is in
// signer_fields.h.
//
// An object is made for one pair. Call Parse, Verify and GetPublicKeys in this order, on one
// thread. Virtual functions stand in binary order.
//
// The pair lies in a mapped file that may change. Each length is read once and compared with what
// encloses it. Parse copies what Verify uses: signed data, signatures and public keys.
class ApkSignatureBlockBase {
 public:
  // Checks the scheme's rules for the signed attributes. False logs one error line.
  [[nodiscard]] virtual bool VerifyAttributes(const std::vector<Attribute>& attributes) = 0;
  // See VerifyMainCertificate in verification_steps.h.
  [[nodiscard]] virtual bool VerifyMainCertificate(
      const std::vector<std::vector<uint8_t>>& certificates,
      const std::vector<uint8_t>& publicKey) const;

  // `block` points at a whole pair and is borrowed, as are the bytes of `chunks`, the package's
  // digested regions. `length` is the pair's length, if the caller has read it and found that the
  // pair fits. Without it, Parse reads the pair's own length and trusts it.
  ApkSignatureBlockBase(const ApkSignatureBlock* block, std::vector<RawData> chunks,
                        std::optional<uint64_t> length = std::nullopt);
  ApkSignatureBlockBase(const ApkSignatureBlockBase&) = delete;
  ApkSignatureBlockBase& operator=(const ApkSignatureBlockBase&) = delete;
  virtual ~ApkSignatureBlockBase() = default;
  // Names the pages that Verify may give back once they are digested. Without it there are none.
  void SetPages(const FilePages& pages) { pages_ = pages; }
  // Replaces `out` with the keys that Verify found. Returns false when there are none.
  [[nodiscard]] virtual bool GetPublicKeys(std::vector<std::vector<uint8_t>>& out);
  // Parses all signers. False logs one error line for each level that failed and leaves no signers.
  [[nodiscard]] virtual bool Parse() = 0;
  // Verifies the signers. False logs one error line for the step that failed. Keys found before a
  // failure stay.
  [[nodiscard]] virtual bool Verify() = 0;

  // Parse the item at a pointer. A null pointer returns false.
  [[nodiscard]] static bool ParseDigestItem(const LengthValueItem* item, Digest& out);
  [[nodiscard]] static bool ParseSignatureItem(const LengthValueItem* item, Signature& out);
  // What follows the item is not known here, so the last four bytes of the value are zeros.
  [[nodiscard]] static bool ParseAttributeItem(const LengthValueItem* item, Attribute& out);

  // Parse the whole sequence at a pointer and append to `out`. Records before a bad one stay there.
  [[nodiscard]] static bool ParseDigests(const LengthValueItem* sequence, std::vector<Digest>& out);
  [[nodiscard]] static bool ParseSignatures(const LengthValueItem* sequence,
                                            std::vector<Signature>& out);
  [[nodiscard]] static bool ParseCerts(const LengthValueItem* sequence,
                                       std::vector<std::vector<uint8_t>>& out);
  // `following` counts the bytes behind the sequence that belong to the same signed data. A
  // sequence that runs past the end of the address space logs one error line.
  [[nodiscard]] static bool ParseAttributes(const LengthValueItem* sequence,
                                            std::vector<Attribute>& out, uint64_t following = 0);

  // See CompareOrder in verification_steps.h.
  [[nodiscard]] static bool CompareOrder(const std::vector<Signature>& signatures,
                                         const std::vector<Digest>& digests);

  // See CreateHash, CreateVerifier and FindBestSupported in algorithms.h.
  [[nodiscard]] static std::unique_ptr<Hash> CreateHashFromAlgoId(uint32_t id);
  [[nodiscard]] static std::unique_ptr<Verifier> CreateVerifierFromAlgoId(uint32_t id);
  template <typename Record>
  [[nodiscard]] static typename std::vector<Record>::const_iterator FindBestSupportedAlgoId(
      const std::vector<Record>& entries) {
    return FindBestSupported(entries);
  }

  // Computes the package's content digest with `hash`, which is only lent. False logs one error
  // line.
  [[nodiscard]] bool CalcTopDigestOfAPK(std::unique_ptr<Hash>& hash,
                                        std::vector<uint8_t>& topDigest);

 protected:
  // Returns the bytes behind the pair's ID.
  [[nodiscard]] ByteCursor PairValue() const;

  // Verification steps that need the object, between VerifySignature and the end, in the order of
  // their use. Each logs one error line when it fails, after those of the steps below it.

  // Checks the main certificate and the attributes.
  [[nodiscard]] bool VerifySignedFields(const std::vector<std::vector<uint8_t>>& certificates,
                                        const std::vector<uint8_t>& publicKey,
                                        const std::vector<Attribute>& attributes);
  // See VerifyContent in verification_steps.h.
  [[nodiscard]] bool VerifyContent(const std::vector<Signature>& signatures,
                                   const std::vector<Digest>& digests,
                                   std::unique_ptr<Hash>& hash) const;
  // Appends the verifier's key to the public keys.
  [[nodiscard]] bool StorePublicKey(const Verifier& verifier);

  std::vector<std::vector<uint8_t>>& PublicKeys() { return publicKeys_; }

 private:
  const ApkSignatureBlock* block_;
  std::vector<RawData> chunks_;
  std::vector<std::vector<uint8_t>> publicKeys_;
  std::optional<uint64_t> length_;
  FilePages pages_;
};

}  // namespace Quill
