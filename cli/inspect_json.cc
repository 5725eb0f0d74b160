// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "cli/inspection.h"
#include "util/escape.h"

namespace Quill::Tool {
namespace {

using Anatomy::Coverage;
using Anatomy::Field;
using OrderedJson = nlohmann::ordered_json;

std::string Dump(const OrderedJson& json) {
  return json.dump(/*indent=*/-1, /*indent_char=*/' ', /*ensure_ascii=*/true);
}

OrderedJson Text(std::string_view text) { return EscapeInvalidUtf8(text); }

// Writes the tree piece by piece: as an object it would need many times the memory of the fields.
class TreeWriter {
 public:
  explicit TreeWriter(const Sink& sink) : sink_(sink) {}

  // As deep as the tree, whose depth no file decides.
  void Write(const Field& field, ByteCursor bytes) {
    buffer_ += "{\"name\":";
    PutName(field);
    Put(",\"offset\":", field.offset);
    Put(",\"size\":", field.size);
    if (const auto value = ValueOf(field, bytes)) {
      if (const auto* number = std::get_if<uint64_t>(&*value)) {
        Put(",\"value\":", *number);
      } else {
        buffer_ += ",\"value\":";
        PutText(std::get<std::string>(*value));
      }
    }
    if (!field.Note().empty()) {
      buffer_ += ",\"note\":";
      PutText(field.Note());
    }
    if (!field.fields.empty()) PutFields(field, bytes);
    if (const Anatomy::Decoded* decoded = field.DecodedBytes()) {
      Put(",\"decoded\":{\"size\":", decoded->bytes.size());
      PutFields(decoded->root, ByteCursor(decoded->bytes));
      buffer_ += '}';
    }
    buffer_ += '}';
    constexpr size_t kPiece = 1 << 16;
    if (buffer_.size() >= kPiece) Flush();
  }

  void Flush() {
    sink_(buffer_);
    buffer_.clear();
  }

 private:
  void PutFields(const Field& field, ByteCursor bytes) {
    buffer_ += ",\"fields\":[";
    bool isFirst = true;
    for (const Field& child : field.fields) {
      if (!std::exchange(isFirst, false)) buffer_ += ',';
      Write(child, bytes);
    }
    buffer_ += ']';
  }

  void Put(std::string_view key, uint64_t number) {
    char digits[24];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), number);
    buffer_.append(key).append(digits, end.ptr);
  }

  // Names are literals, which need no escape.
  void PutName(const Field& field) {
    buffer_.append(1, '"').append(field.name);
    if (field.index >= 0) {
      Put("[", static_cast<uint64_t>(field.index));
      buffer_ += ']';
    }
    buffer_ += '"';
  }

  void PutText(std::string_view text) {
    const auto isPlain = [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; };
    if (std::all_of(text.begin(), text.end(), isPlain)) {
      buffer_.append(1, '"').append(text).append(1, '"');
    } else {
      buffer_ += Dump(Text(text));
    }
  }

  const Sink& sink_;
  std::string buffer_;
};

OrderedJson ToJson(const Anatomy::PublicKeyFacts& key) {
  return {{"type", key.type}, {"bits", key.bits}, {"sha256", key.sha256}};
}

OrderedJson ToJson(const std::optional<Anatomy::CertificateFacts>& certificate) {
  if (!certificate) return nullptr;
  OrderedJson object = {{"subject", Text(certificate->subject)},
                        {"issuer", Text(certificate->issuer)},
                        {"serialNumber", Text(certificate->serial)},
                        {"notBefore", Text(certificate->notBefore)},
                        {"notAfter", Text(certificate->notAfter)},
                        {"sha256", certificate->sha256},
                        {"publicKey", nullptr}};
  if (certificate->key) object["publicKey"] = ToJson(*certificate->key);
  return object;
}

OrderedJson ToJson(const Anatomy::SignerFacts& signer) {
  OrderedJson certificates = OrderedJson::array();
  for (const auto& certificate : signer.certificates) certificates.push_back(ToJson(certificate));
  OrderedJson signatures = OrderedJson::array();
  for (const Anatomy::AlgorithmFacts& algorithm : signer.signatures) {
    signatures.push_back(
        {{"algorithm", nullptr}, {"name", algorithm.Name()}, {"chosen", algorithm.isChosen}});
    if (algorithm.id) signatures.back()["algorithm"] = *algorithm.id;
  }
  OrderedJson lineage = OrderedJson::array();
  for (const Anatomy::LevelFacts& level : signer.lineage) {
    lineage.push_back({{"certificate", ToJson(level.certificate)},
                       {"flags", level.flags},
                       {"algorithm", level.algorithmId}});
  }
  OrderedJson object = {
      {"field", signer.path}, {"scheme", signer.scheme},  {"chosen", signer.isChosen},
      {"minSdk", nullptr},    {"maxSdk", nullptr},        {"certificates", certificates},
      {"publicKey", nullptr}, {"signatures", signatures}, {"lineage", lineage}};
  if (signer.minSdk) object["minSdk"] = *signer.minSdk;
  if (signer.maxSdk) object["maxSdk"] = *signer.maxSdk;
  if (signer.publicKey) object["publicKey"] = ToJson(*signer.publicKey);
  return object;
}

OrderedJson ToJson(const Coverage& coverage) {
  OrderedJson ranges = OrderedJson::array();
  for (const Anatomy::ByteRange& range : coverage.ranges) {
    ranges.push_back({range.offset, range.size});
  }
  return {{"by", Text(coverage.by)},
          {"how", TextOf(coverage.how)},
          {"checked", TextOf(coverage.checked)},
          {"ranges", ranges}};
}

OrderedJson BlamedToJson(const Inspection& inspection) {
  const Field* field =
      inspection.blamed.empty() ? nullptr : Find(inspection.package.file, inspection.blamed);
  if (field == nullptr) return nullptr;
  return {{"field", inspection.blamed}, {"offset", field->offset}, {"size", field->size}};
}

}  // namespace

void WriteJson(const Inspection& inspection, const Sink& sink) {
  OrderedJson signers = OrderedJson::array();
  for (const Anatomy::SignerFacts& signer : inspection.signers) signers.push_back(ToJson(signer));
  OrderedJson coverage = OrderedJson::array();
  for (const Coverage& one : inspection.coverage) coverage.push_back(ToJson(one));
  sink("{\"schemaVersion\":1,\"verdict\":" + ToJson(inspection.report) +
       ",\"blamed\":" + Dump(BlamedToJson(inspection)) + ",\"signers\":" + Dump(signers) +
       ",\"coverage\":" + Dump(coverage));
  if (inspection.package.mapping != nullptr) {
    const Anatomy::Place place = FindPlace(inspection.package.file, inspection.field);
    sink(inspection.field.empty() ? ",\"file\":"
                                  : ",\"field\":" + Dump(Text(inspection.field)) + ",\"branch\":");
    TreeWriter writer(sink);
    writer.Write(*place.field,
                 place.in != nullptr ? ByteCursor(place.in->bytes) : inspection.package.Bytes());
    writer.Flush();
  }
  sink("}\n");
}

}  // namespace Quill::Tool
