// SPDX-License-Identifier: Apache-2.0

#include "anatomy/jar_fields.h"

#include <openssl/bytestring.h>
#include <openssl/mem.h>
#include <openssl/nid.h>
#include <openssl/obj.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <quillon/manifest_mf.h>

#include "util/text.h"

namespace Quill::Anatomy {
namespace {

bool IsBreak(char c) { return c == '\n' || c == '\r'; }

// Returns the position behind the line that holds `position`, with its line break: as the parser
// skips it, LF, CR, CR LF and LF CR are one.
size_t NextLine(std::string_view text, size_t position) {
  const size_t end = text.find_first_of("\n\r", position);
  if (end == std::string_view::npos) return text.size();
  const bool isPair = end + 1 < text.size() && IsBreak(text[end + 1]) && text[end + 1] != text[end];
  return end + (isPair ? 2 : 1);
}

// Returns the end of the section that starts at `start`: the first character of the blank line
// behind it belongs to it. 0 when no blank line ends it.
size_t SectionEnd(std::string_view text, size_t start) {
  for (size_t line = NextLine(text, start); line < text.size(); line = NextLine(text, line)) {
    if (IsBreak(text[line])) return line + 1;
  }
  return 0;
}

void TakeSection(const FieldReader& reader, std::string_view text, ByteCursor bytes,
                 const ManifestMf::Section& read, Field& section) {
  int32_t count = 0;
  for (size_t line = 0; line < text.size();) {
    size_t next = NextLine(text, line);
    while (next < text.size() && text[next] == ' ') next = NextLine(text, next);
    if (next < text.size() && IsBreak(text[next])) next = text.size();  // the blank line
    reader.TakeBytes(bytes, section, "attributes", next - line, Shape::kLine, count++);
    line = next;
  }
  const auto name = read.find("Name");
  if (name == read.end()) return;
  if (!section.extras) section.extras = std::make_unique<Extras>();
  section.extras->text = name->second;
}

// An element of DER.
struct Element {
  ByteCursor whole;
  ByteCursor content;
  unsigned tag = 0;
};

bool TakeElement(ByteCursor& cursor, Element& out) {
  CBS rest;
  CBS_init(&rest, cursor.Data(), cursor.Remaining());
  CBS element;
  size_t headerSize = 0;
  if (!CBS_get_any_asn1_element(&rest, &element, &out.tag, &headerSize)) return false;
  out.whole = cursor.TakeAtMost(CBS_len(&element));
  out.content = out.whole;
  static_cast<void>(out.content.TakeAtMost(headerSize));
  return true;
}

// An object identifier, such as "2.16.840.1.101.3.4.2.1" and "sha256".
struct ObjectText {
  std::string numbers;  // empty: it is malformed
  std::string name;     // empty: nobody knows it
};

ObjectText DescribeObject(CBS identifier) {
  const std::unique_ptr<char, void (*)(void*)> numbers(CBS_asn1_oid_to_text(&identifier),
                                                       OPENSSL_free);
  if (!numbers) return {};
  const int nid = OBJ_cbs2nid(&identifier);
  return {numbers.get(), nid == NID_undef ? "" : OBJ_nid2ln(nid)};
}

// Reads an element that is an object identifier, or a sequence that starts with one.
bool FindObject(const Element& element, CBS& out) {
  CBS_init(&out, element.content.Data(), element.content.Remaining());
  if (element.tag == CBS_ASN1_OBJECT) return true;
  CBS fields = out;
  return element.tag == CBS_ASN1_SEQUENCE && CBS_get_asn1(&fields, &out, CBS_ASN1_OBJECT);
}

// Returns what a short element says: an object identifier, or the digits of an integer.
std::string ElementText(const Element& element) {
  if (element.tag == CBS_ASN1_INTEGER && element.content.Remaining() <= 32) {
    return ToHex(element.content.Data(), element.content.Remaining());
  }
  CBS identifier;
  if (!FindObject(element, identifier)) return "";
  const ObjectText object = DescribeObject(identifier);
  return object.name.empty() ? object.numbers : object.numbers + " (" + object.name + ")";
}

// Takes the elements of a PKCS #7 block. After false, the rest of what encloses it is "unread".
class Pkcs7Reader {
 public:
  explicit Pkcs7Reader(const FieldReader& reader) : reader_(reader) {}

  bool TakeBlock(ByteCursor& cursor, Field& parent) {
    ByteCursor info;
    Field* contentInfo = Open(cursor, parent, "contentInfo", CBS_ASN1_SEQUENCE, info);
    if (contentInfo == nullptr) return false;
    const bool isRead =
        TakeLeaf(info, *contentInfo, "contentType") && TakeContent(info, *contentInfo);
    Close(info, *contentInfo, isRead);
    return isRead;
  }

 private:
  bool TakeContent(ByteCursor& cursor, Field& parent) {
    ByteCursor inside;
    Field* content = Open(cursor, parent, "content", kExplicit0, inside);
    if (content == nullptr) return false;
    ByteCursor fields;
    Field* signedData = Open(inside, *content, "signedData", CBS_ASN1_SEQUENCE, fields);
    bool isRead = signedData != nullptr;
    if (isRead) {
      isRead = TakeLeaf(fields, *signedData, "version") &&
               TakeLeaf(fields, *signedData, "digestAlgorithms") &&
               TakeLeaf(fields, *signedData, "contentInfo") &&
               TakeCertificates(fields, *signedData) && TakeSignerInfos(fields, *signedData);
      Close(fields, *signedData, isRead);
    }
    Close(inside, *content, isRead);
    return isRead;
  }

  bool TakeCertificates(ByteCursor& cursor, Field& parent) {
    ByteCursor inside;
    Field* certificates = Open(cursor, parent, "certificates", kExplicit0, inside);
    if (certificates == nullptr) return false;
    bool isRead = true;
    for (int32_t i = 0; isRead && inside.Remaining() != 0; ++i) {
      isRead = TakeLeaf(inside, *certificates, "", i);
      if (isRead) certificates->fields.back().shape = Shape::kCertificate;
    }
    Close(inside, *certificates, isRead);
    return true;  // the verifier finds the signer behind them all the same
  }

  bool TakeSignerInfos(ByteCursor& cursor, Field& parent) {
    ByteCursor inside;
    Field* signerInfos = Open(cursor, parent, "signerInfos", kAnyTag, inside);
    if (signerInfos == nullptr) return false;
    bool isRead = true;
    for (int32_t i = 0; isRead && inside.Remaining() != 0; ++i) {
      ByteCursor fields;
      Field* signer = Open(inside, *signerInfos, "", kAnyTag, fields, i);
      if (signer == nullptr) break;
      isRead = TakeSigner(fields, *signer);
      Close(fields, *signer, isRead);
    }
    Close(inside, *signerInfos, isRead);
    return isRead;
  }

  bool TakeSigner(ByteCursor& cursor, Field& signer) {
    if (!TakeLeaf(cursor, signer, "version") || !TakeLeaf(cursor, signer, "issuerAndSerial") ||
        !TakeLeaf(cursor, signer, "digestAlgorithm")) {
      return false;
    }
    ByteCursor ahead = cursor;
    Element element;
    if (TakeElement(ahead, element) && element.tag == kExplicit0 &&
        !TakeLeaf(cursor, signer, "signedAttributes")) {
      return false;
    }
    return TakeLeaf(cursor, signer, "signatureAlgorithm") && TakeLeaf(cursor, signer, "signature");
  }

  // Takes an element as a field without others below it.
  bool TakeLeaf(ByteCursor& cursor, Field& parent, const char* name, int32_t index = -1) {
    Element element;
    if (reader_.Budget().IsSpent() || !TakeElement(cursor, element)) {
      const std::string shown = index < 0 ? name : "item " + std::to_string(index);
      return reader_.Fail(cursor, parent, shown + " is no DER element");
    }
    Field& field = reader_.Append(parent, reader_.Make(name, element.whole, Shape::kBytes, index));
    const std::string text = ElementText(element);
    if (text.empty()) return true;
    field.extras = std::make_unique<Extras>();
    field.extras->text = text;
    return true;
  }

  // Takes an element as a group with its header; `inside` is its content. Null when it has another
  // tag.
  Field* Open(ByteCursor& cursor, Field& parent, const char* name, unsigned tag, ByteCursor& inside,
              int32_t index = -1) {
    ByteCursor ahead = cursor;
    Element element;
    if (reader_.Budget().IsSpent() || !TakeElement(ahead, element) ||
        (tag != kAnyTag && element.tag != tag)) {
      static_cast<void>(reader_.Fail(cursor, parent, std::string(name) + " is missing"));
      return nullptr;
    }
    cursor = ahead;
    Field& field = reader_.Append(parent, reader_.Make(name, element.whole, Shape::kGroup, index));
    inside = element.content;
    ByteCursor whole = element.whole;
    reader_.TakeBytes(whole, field, "header", whole.Remaining() - inside.Remaining(),
                      Shape::kBytes);
    return &field;
  }

  void Close(ByteCursor& inside, Field& group, bool isRead) {
    reader_.TakeRest(inside, group, isRead ? "unused" : "unread");
  }

  static constexpr unsigned kAnyTag = 0;  // where the verifier does not look at it
  static constexpr unsigned kExplicit0 = CBS_ASN1_CONTEXT_SPECIFIC | CBS_ASN1_CONSTRUCTED | 0;
  const FieldReader& reader_;
};

}  // namespace

void TakeManifest(const FieldReader& reader, Field& parent) {
  ByteCursor bytes = reader.Bytes();
  std::string_view text(reinterpret_cast<const char*>(bytes.Data()), bytes.Remaining());
  for (int32_t i = 0; bytes.Remaining() != 0; ++i) {
    if (const size_t blank = std::min(text.find_first_not_of("\n\r "), text.size()); blank != 0) {
      reader.TakeBytes(bytes, parent, "blank", blank, Shape::kBytes, i);
      text.remove_prefix(blank);
      if (text.empty()) return;
    }
    const size_t end = SectionEnd(text, 0);
    if (end == 0 || reader.Budget().IsSpent()) {
      static_cast<void>(reader.Fail(
          bytes, parent, end == 0 ? "no blank line ends it, so it is dropped" : kTooManyFields));
      return;
    }
    const std::string_view own = text.substr(0, end);
    ManifestMf read;
    if (!read.load(std::string(own)) || read.getSections().size() != 1) {
      static_cast<void>(reader.Fail(bytes, parent, "the parser cannot read it as a section"));
      return;
    }
    const ByteCursor sectionBytes = bytes.TakeAtMost(end);
    Field section = reader.Make("sections", sectionBytes, Shape::kGroup, i);
    TakeSection(reader, own, sectionBytes, read.getSections().front(), section);
    reader.Append(parent, std::move(section));
    text.remove_prefix(end);
  }
}

void TakePkcs7(const FieldReader& reader, Field& parent) {
  ByteCursor bytes = reader.Bytes();
  const bool isRead = Pkcs7Reader(reader).TakeBlock(bytes, parent);
  reader.TakeRest(bytes, parent, isRead ? "unused" : "unread");
}

std::string NameOfAlgorithm(ByteCursor der) {
  Element element;
  CBS identifier;
  if (!TakeElement(der, element) || !FindObject(element, identifier)) return "unknown";
  const ObjectText object = DescribeObject(identifier);
  if (object.numbers.empty()) return "unknown";
  return object.name.empty() ? object.numbers : object.name;
}

}  // namespace Quill::Anatomy
