// SPDX-License-Identifier: Apache-2.0

#include "anatomy/signer_facts.h"

#include <string_view>

#include "anatomy/coverage.h"
#include "anatomy/jar_fields.h"
#include "util/text.h"

namespace Quill::Anatomy {
namespace {

bool IsNamed(const Field& field, std::string_view name) { return field.name == name; }

std::optional<uint32_t> NumberAt(const Field& parent, const char* name, ByteCursor bytes) {
  const Field* field = parent.Child(name);
  if (field == nullptr) return std::nullopt;
  return static_cast<uint32_t>(NumberIn(*field, bytes));
}

std::optional<CertificateFacts> CertificateAt(const Field& parent, ByteCursor bytes) {
  const Field* field = parent.Child("certificate");
  return field == nullptr ? std::nullopt : ReadCertificate(BytesOf(*field, bytes));
}

void AddSignedData(const Field& signedData, ByteCursor bytes, size_t most, SignerFacts& out) {
  if (const Field* certificates = signedData.Child("certificates")) {
    for (const Field& item : certificates->fields) {
      if (item.index >= 0 && out.certificates.size() < most) {
        out.certificates.push_back(CertificateAt(item, bytes));
      }
    }
  }
  const Field* attributes = signedData.Child("attributes");
  if (attributes == nullptr) return;
  for (const Field& attribute : attributes->fields) {
    const Field* lineage = attribute.Child("lineage");
    if (lineage == nullptr) continue;
    for (const Field& level : lineage->fields) {
      const Field* own = level.Child("signedData");
      if (own == nullptr || out.lineage.size() >= most) continue;
      const Field* certificate = own->Child("certificate");
      out.lineage.push_back(
          {certificate == nullptr ? std::nullopt : CertificateAt(*certificate, bytes),
           NumberAt(level, "flags", bytes).value_or(0),
           NumberAt(level, "algorithm", bytes).value_or(0)});
    }
  }
}

void AddPair(const Package& package, const std::string& path, const Field& pair, size_t most,
             std::vector<SignerFacts>& out) {
  const Field* signers = pair.Child("signers");
  if (signers == nullptr) return;
  const ByteCursor bytes = package.Bytes();
  const bool isV2 = IsNamed(pair, "v2");
  const int32_t chosen = isV2 ? -1 : ChosenSigner(package, pair);
  for (const Field& signer : signers->fields) {
    if (signer.index < 0 || out.size() >= most) continue;
    SignerFacts facts;
    facts.path = path + ".signers" + signer.Name();
    facts.scheme = pair.name;
    facts.isChosen = path == package.chosenPair && (isV2 || signer.index == chosen);
    facts.minSdk = NumberAt(signer, "minSdk", bytes);
    facts.maxSdk = NumberAt(signer, "maxSdk", bytes);
    if (const Field* signatures = signer.Child("signatures")) {
      const int32_t best = ChosenAlgorithm(package, *signatures);
      for (const Field& item : signatures->fields) {
        if (item.index < 0 || facts.signatures.size() >= most) continue;
        facts.signatures.push_back(
            {NumberAt(item, "algorithm", bytes).value_or(0), item.index == best, ""});
      }
    }
    const Field* publicKey = signer.Child("publicKey");
    const Field* key = publicKey == nullptr ? nullptr : publicKey->Child("key");
    if (key != nullptr) facts.publicKey = ReadPublicKey(BytesOf(*key, bytes));
    const Field* signedData = signer.Child("signedData");
    if (signedData != nullptr) AddSignedData(*signedData, bytes, most, facts);
    out.push_back(std::move(facts));
  }
}

// Adds the algorithms that the signer infos of a JAR signature name. The verifier reads the first.
void AddSignerInfos(const Field& infos, ByteCursor bytes, size_t most, SignerFacts& out) {
  for (const Field& info : infos.fields) {
    const Field* digest = info.Child("digestAlgorithm");
    const Field* signature = info.Child("signatureAlgorithm");
    if (digest == nullptr || signature == nullptr || out.signatures.size() >= most) continue;
    out.signatures.push_back({std::nullopt, info.index == 0,
                              NameOfAlgorithm(BytesOf(*signature, bytes)) + " with " +
                                  NameOfAlgorithm(BytesOf(*digest, bytes))});
  }
}

void AddBlock(const Package& package, const Field& entry, size_t most,
              std::vector<SignerFacts>& out) {
  const Field* data = entry.Child("data");
  const Decoded* decoded = data == nullptr ? nullptr : data->DecodedBytes();
  if (decoded == nullptr || out.size() >= most) return;
  const Field* signedData = Find(decoded->root, "contentInfo.content.signedData");
  const Field* certificates = signedData == nullptr ? nullptr : signedData->Child("certificates");
  if (certificates == nullptr) return;
  SignerFacts facts;
  facts.path = entry.Name();
  facts.block = entry.extras->text;
  facts.scheme = "v1";
  facts.isChosen = package.chosenPair.empty() && entry.extras->text == package.signatureBlock;
  const ByteCursor bytes(decoded->bytes);
  for (const Field& item : certificates->fields) {
    if (item.index < 0 || facts.certificates.size() >= most) continue;
    facts.certificates.push_back(ReadCertificate(BytesOf(item, bytes)));
  }
  if (const CertificateFacts* certificate = facts.Certificate()) facts.publicKey = certificate->key;
  const Field* infos = signedData->Child("signerInfos");
  if (infos != nullptr) AddSignerInfos(*infos, bytes, most, facts);
  out.push_back(std::move(facts));
}

}  // namespace

const CertificateFacts* SignerFacts::Certificate() const {
  if (certificates.empty()) return nullptr;
  const auto& one = scheme == "v1" ? certificates.back() : certificates.front();
  return one ? &*one : nullptr;
}

std::vector<SignerFacts> SignersOf(const Package& package, size_t most) {
  std::vector<SignerFacts> signers;
  for (const Field& field : package.file.fields) {
    if (IsNamed(field, "signingBlock")) {
      for (const Field& pair : field.fields) {
        AddPair(package, JoinPath(field.Name(), pair.Name()), pair, most, signers);
      }
    } else if (IsNamed(field, "entries") && field.extras && !EndsWith(field.extras->text, ".SF") &&
               !EndsWith(field.extras->text, ".MF")) {
      AddBlock(package, field, most, signers);
    }
  }
  return signers;
}

std::string FlagNames(uint32_t flags) {
  constexpr struct {
    uint32_t flag;
    const char* name;
  } kFlags[] = {{1, "installed data"},
                {2, "shared user ID"},
                {4, "permission"},
                {8, "rollback"},
                {16, "authenticator"}};
  std::string names;
  for (const auto& [flag, name] : kFlags) {
    if ((flags & flag) == 0) continue;
    names += (names.empty() ? "" : ", ") + std::string(name);
  }
  return names;
}

}  // namespace Quill::Anatomy
