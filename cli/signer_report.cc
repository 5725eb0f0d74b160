// SPDX-License-Identifier: Apache-2.0

#include "cli/signer_report.h"

#include <openssl/nid.h>
#include <openssl/x509.h>

#include <nlohmann/json.hpp>

#include <quillon/digest.h>

#include "anatomy/certificate_facts.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

using Json = nlohmann::ordered_json;

// Returns true when the certificate is one that development tools make.
bool IsDebugCertificate(const std::vector<uint8_t>& der) {
  const uint8_t* bytes = der.data();
  const bssl::UniquePtr<X509> certificate(d2i_X509(nullptr, &bytes, static_cast<long>(der.size())));
  if (!certificate) return false;
  char name[64] = "";
  X509_NAME_get_text_by_NID(X509_get_subject_name(certificate.get()), NID_commonName, name,
                            sizeof name);
  return std::string(name) == "Android Debug";
}

KeyReport Report(const AcceptedKey& key) {
  KeyReport report;
  report.certificateSha256 = Sha256Of(key.certificate);
  report.publicKeySha256 = Sha256Of(key.publicKey);
  report.flags = key.flags;
  report.isDebug = IsDebugCertificate(key.certificate);
  const auto facts = Anatomy::ReadPublicKey(ByteCursor(key.publicKey));
  report.type = facts ? facts->type : "unknown";
  report.bits = facts ? facts->bits : 0;
  return report;
}

Json ToJson(const KeyReport& key) {
  return {{"certificateSha256", key.certificateSha256},
          {"publicKeySha256", key.publicKeySha256},
          {"keyType", key.type},
          {"keyBits", key.bits}};
}

}  // namespace

std::string Sha256Of(const std::vector<uint8_t>& bytes) {
  const std::vector<uint8_t> digest = ComputeSHA256Digest(bytes);
  return ToHex(digest.data(), digest.size());
}

std::vector<SignerReport> ReportSigners(const std::vector<AcceptedSigner>& signers) {
  std::vector<SignerReport> reports;
  for (const AcceptedSigner& signer : signers) {
    SignerReport report;
    for (const AcceptedKey& key : signer.chain) report.chain.push_back(Report(key));
    report.minSdk = signer.minSdk;
    report.maxSdk = signer.maxSdk;
    report.contentDigest = signer.contentDigest;
    reports.push_back(std::move(report));
  }
  return reports;
}

Json ToJson(const SignerReport& signer) {
  Json object = ToJson(signer.Current());
  object["minSdk"] = signer.minSdk;
  object["maxSdk"] = signer.maxSdk;
  Json lineage = Json::array();
  for (const KeyReport& key : signer.chain) {
    if (signer.chain.size() == 1) break;
    lineage.push_back(ToJson(key));
    lineage.back()["flags"] = key.flags;
  }
  object["lineage"] = lineage;
  return object;
}

}  // namespace Quill::Tool
