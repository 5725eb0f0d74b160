// SPDX-License-Identifier: Apache-2.0

#include "anatomy/signer_tree.h"

#include <string>
#include <utility>
#include <vector>

#include "schemes/proof_of_rotation.h"
#include "schemes/signer_fields.h"
#include "schemes/signer_items.h"

namespace Quill::Anatomy {
namespace {

constexpr uint64_t kIdSize = 4;
constexpr uint32_t kLineageId = 0x3ba06f8c;
constexpr char kNotParsed[] = "the verifier cannot parse them";

// Reads the signers of one pair. Each function returns false when the verifier cannot parse what it
// takes; all bytes have fields then, too.
class SignerReader {
 public:
  SignerReader(const FieldReader& reader, bool isV3) : reader_(reader), isV3_(isV3) {}

  bool TakeSigner(ByteCursor fields, bool isWhole, Field& signer) {
    bool isDataWhole = false;
    ByteCursor data;
    Field* signedData = reader_.TakeItemAtMost(fields, signer, "signedData", -1, data, isDataWhole);
    if (signedData == nullptr || !TakeSignedData(data, *signedData)) {
      return reader_.Fail(fields, signer);
    }
    if (isV3_ && !TakeSdkRange(fields, signer)) return false;
    if (fields.Remaining() == 0) return reader_.Fail(fields, signer, "signatures are missing");
    if (!TakeSequence<Signature>(fields, signer, "signatures")) return false;
    ByteCursor key;
    Field* publicKey = reader_.TakeItem(fields, signer, "publicKey", -1, key);
    if (publicKey == nullptr) return false;
    if (key.Remaining() != 0) {
      reader_.TakeBytes(key, *publicKey, "key", key.Remaining(), Shape::kPublicKey);
    }
    if (fields.Remaining() != 0) return reader_.Fail(fields, signer, "behind the public key");
    if (!isWhole) signer.AddNote("its length runs past the pair");
    return isWhole;
  }

 private:
  bool TakeSignedData(ByteCursor data, Field& field) {
    lineages_ = 0;
    if (!TakeSequence<Digest>(data, field, "digests")) return false;
    if (data.Remaining() == 0) return reader_.Fail(data, field, "certificates are missing");
    if (!TakeCertificates(data, field)) return false;
    if (isV3_ && !TakeSdkRange(data, field)) return false;
    if (data.Remaining() == 0) return reader_.Fail(data, field, "attributes are missing");
    const bool areAttributesRead = TakeAttributes(data, field);
    reader_.TakeRest(data, field, areAttributesRead ? "unused" : "unread");
    return areAttributesRead;
  }

  // Takes a sequence of digests or signatures: each an algorithm and a value.
  template <typename Record>
  bool TakeSequence(ByteCursor& cursor, Field& parent, const char* name) {
    ByteCursor items;
    Field* sequence = reader_.TakeItem(cursor, parent, name, -1, items);
    if (sequence == nullptr) return false;
    for (int32_t i = 0; items.Remaining() != 0; ++i) {
      ByteCursor item;
      Field* field = reader_.TakeItem(items, *sequence, "", i, item);
      if (field == nullptr) return reader_.Fail(cursor, parent);
      Record record;
      if (!ParseItem(item, record)) {
        static_cast<void>(reader_.Fail(item, *field, "algorithm, length and value do not fit"));
        static_cast<void>(reader_.Fail(items, *sequence));
        return reader_.Fail(cursor, parent);
      }
      reader_.TakeBytes(item, *field, "algorithm", kIdSize, Shape::kAlgorithm);
      reader_.TakeBytes(item, *field, "valueLength", kIdSize, Shape::kNumber);
      if (item.Remaining() != 0) {
        reader_.TakeBytes(item, *field, "value", item.Remaining(), Shape::kBytes);
      }
    }
    return true;
  }

  bool TakeCertificates(ByteCursor& cursor, Field& parent) {
    ByteCursor items;
    Field* sequence = reader_.TakeItem(cursor, parent, "certificates", -1, items);
    if (sequence == nullptr) return false;
    for (int32_t i = 0; items.Remaining() != 0; ++i) {
      ByteCursor der;
      Field* field = reader_.TakeItem(items, *sequence, "", i, der);
      if (field == nullptr) return reader_.Fail(cursor, parent);
      if (der.Remaining() != 0) {
        reader_.TakeBytes(der, *field, "certificate", der.Remaining(), Shape::kCertificate);
      }
    }
    return true;
  }

  // A number that is cut short counts as 0, and nothing is left for the next field.
  bool TakeSdkRange(ByteCursor& cursor, Field& parent) {
    for (const char* name : {"minSdk", "maxSdk"}) {
      if (cursor.Remaining() == 0) {
        return reader_.Fail(cursor, parent, std::string(name) + " is missing");
      }
      const bool isWhole = cursor.Remaining() >= kIdSize;
      reader_.TakeBytes(cursor, parent, name, kIdSize, isWhole ? Shape::kNumber : Shape::kBytes);
      if (!isWhole) parent.fields.back().AddNote("cut short, so it counts as 0");
    }
    return true;
  }

  bool TakeAttributes(ByteCursor& cursor, Field& parent) {
    ByteCursor items;
    Field* sequence = reader_.TakeItem(cursor, parent, "attributes", -1, items);
    if (sequence == nullptr) return false;
    bool isLineageRead = true;
    for (int32_t i = 0; items.Remaining() != 0; ++i) {
      ByteCursor item;
      Field* field = reader_.TakeItem(items, *sequence, "", i, item);
      if (field == nullptr) return false;
      Attribute attribute;
      ParseItem(item, items.Remaining() + cursor.Remaining(), attribute);
      const bool hasId = item.Remaining() >= kIdSize;
      reader_.TakeBytes(item, *field, "id", kIdSize, hasId ? Shape::kAttributeId : Shape::kBytes);
      if (!hasId) {
        const uint32_t id = attribute.id;
        field->AddNote("too short for its ID, which goes on behind it: " + std::to_string(id));
      }
      if (isV3_ && attribute.id == kLineageId) {
        isLineageRead = TakeLineage(attribute, item, *field) && isLineageRead;
      } else if (item.Remaining() == kIdSize) {
        reader_.TakeBytes(item, *field, "value", kIdSize, Shape::kNumber);
      } else {
        reader_.TakeRest(item, *field, "value");
      }
    }
    return isLineageRead;
  }

  // `own` are the attribute's bytes behind its ID.
  bool TakeLineage(const Attribute& attribute, ByteCursor own, Field& parent) {
    std::vector<ProofOfRotation> chain;
    const bool isRead = ParseProofOfRotation(attribute.value, chain);
    if (lineages_ != 0) {
      reader_.TakeRest(own, parent, "unread", "there is a lineage already");
      return false;
    }
    lineages_ += chain.empty() ? 0 : 1;
    Field lineage = reader_.Make("lineage", own, Shape::kGroup);
    uint32_t version;
    if (reader_.TakeU32(own, lineage, "version", Shape::kNumber, version)) {
      for (int32_t i = 0; own.Remaining() != 0; ++i) {
        ByteCursor level;
        Field* field = reader_.TakeItem(own, lineage, "", i, level);
        if (field == nullptr) break;
        if (TakeLevel(level, *field)) continue;
        static_cast<void>(reader_.Fail(level, *field));
        static_cast<void>(reader_.Fail(own, lineage));
      }
    }
    reader_.Append(parent, std::move(lineage));
    return isRead;
  }

  bool TakeLevel(ByteCursor& level, Field& field) {
    ByteCursor signedPart;
    Field* signedData = reader_.TakeItem(level, field, "signedData", -1, signedPart);
    if (signedData == nullptr) return false;
    ByteCursor der;
    Field* certificate = reader_.TakeItem(signedPart, *signedData, "certificate", -1, der);
    if (certificate == nullptr) return false;
    if (der.Remaining() != 0) {
      reader_.TakeBytes(der, *certificate, "certificate", der.Remaining(), Shape::kCertificate);
    }
    uint32_t number;
    if (!reader_.TakeU32(signedPart, *signedData, "algorithm", Shape::kAlgorithm, number)) {
      return false;
    }
    if (signedPart.Remaining() != 0) {
      return reader_.Fail(signedPart, *signedData, "behind the algorithm");
    }
    ByteCursor value;
    if (!reader_.TakeU32(level, field, "flags", Shape::kId, number) ||
        !reader_.TakeU32(level, field, "algorithm", Shape::kAlgorithm, number)) {
      return false;
    }
    Field* signature = reader_.TakeItem(level, field, "signature", -1, value);
    if (signature == nullptr) return false;
    reader_.TakeRest(value, *signature, "value");
    reader_.TakeRest(level, field, "unused");
    return true;
  }

  const FieldReader& reader_;
  const bool isV3_;
  int lineages_ = 0;  // with a level, in this signed data
};

}  // namespace

void TakeSigners(const FieldReader& reader, ByteCursor value, bool isV3, Field& pair) {
  Field signers = reader.Make("signers", value, Shape::kGroup);
  ByteCursor rest = value;
  reader.TakeBytes(rest, signers, "length", kIdSize, Shape::kNumber);
  SignerReader signerReader(reader, isV3);
  int32_t count = 0;
  bool hasFailed = false;
  const bool isRead = ParseSigners(value, [&](ByteCursor body, bool isWhole) {
    const int32_t index = count++;
    if (rest.Remaining() < kIdSize || reader.Budget().IsSpent()) {
      hasFailed = true;
      return reader.Fail(rest, signers,
                         reader.Budget().IsSpent() ? kTooManyFields : "a signer is missing");
    }
    ByteCursor item = rest.TakeAtMost(kIdSize + body.Remaining());
    Field signer = reader.Make("", item, Shape::kGroup, index);
    reader.TakeBytes(item, signer, "length", kIdSize, Shape::kNumber);
    hasFailed = !signerReader.TakeSigner(body, isWhole, signer);
    reader.Append(signers, std::move(signer));
    if (hasFailed) static_cast<void>(reader.Fail(rest, signers));
    return !hasFailed;
  });
  if (!isRead && !hasFailed) signers.AddNote("its length ends inside the last signer");
  signers.size = signers.fields.back().End() - signers.offset;
  if (hasFailed) signers.AddNote(reader.Budget().IsSpent() ? kTooManyFields : kNotParsed);
  reader.Append(pair, std::move(signers));
  reader.TakeRest(rest, pair, "unused", "nothing reads it");
}

bool AreSignersRead(const Field& pair) {
  const Field* signers = pair.Child("signers");
  return signers != nullptr && signers->Note().empty();
}

}  // namespace Quill::Anatomy
