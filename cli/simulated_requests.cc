// SPDX-License-Identifier: Apache-2.0

#include "cli/simulated_requests.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>

#include "cli/file_label.h"
#include "cli/output.h"
#include "cli/tarn_code.h"
#include "integrity/libhx.h"
#include "util/escape.h"

namespace Quill::Tool {
namespace {

using nlohmann::json;

// Returns the path of the request's file. Where it is not UTF-8, the journal has its bytes.
std::string FileOf(const json& request) {
  const std::string hex = request.value("fileHex", "");
  if (hex.empty()) return request.value("file", "");
  std::string file;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    file += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  }
  return file;
}

// A request that is answered with a result but without an errno. The library takes it as a success
// on the device, and as a failure on the legacy interface.
bool IsAcceptedResult(const json& request) {
  return request.value("errno", 0) == 0 && request.value("interface", "") == "device";
}

std::string OutcomeOf(const json& request) {
  const std::string name = request.value("request", "");
  const int error = request.value("errno", 0);
  const int result = request.value("result", 0);
  const std::string reason = error == 0 ? "" : ", " + ErrnoText(error);
  if (name == "certificate" && result == kHxAlsoStored) {
    return fmt::format("taken as success, result {:#x}", result);
  }
  if (result == 0) return "done";
  if (name == "certificate") return fmt::format("refused, result {}{}", result, reason);
  if (error == ENOENT && request.value("interface", "") == "device" &&
      (name == "read-label" || name == "read-reset-file")) {
    return "there is none";
  }
  if (error != 0) return "refused: " + ErrnoText(error);
  if (!request.contains("command")) return "answered with an empty file";
  return fmt::format("taken as {}, result {} without an errno",
                     IsAcceptedResult(request) ? "success" : "failure", result);
}

// Describes the request and its outcome in words.
std::string Describe(const json& request) {
  std::string text = request.value("request", "?");
  if (const int pid = request.value("pid", 0); pid != 0) text += fmt::format(" of task {}", pid);
  if (request.contains("file")) text += " " + FileText(FileOf(request));
  if (request.contains("identity")) {
    text += fmt::format(", identity {}, {} bytes", NameText(request["identity"].get<std::string>()),
                        request.value("certificate", "").size() / 2);
  }
  if (request.contains("integrity")) text += " = " + request["integrity"].get<std::string>();
  return text + ", " + OutcomeOf(request);
}

// Returns true for a label that the library believes to be stored.
bool IsSuccessfulSign(const json& request) {
  return request.value("request", "") == "sign" &&
         (request.value("result", -1) == 0 || IsAcceptedResult(request));
}

// Returns the files that were signed, each once, in the order of the first time.
std::vector<std::string> SignedFiles(const std::vector<json>& requests) {
  std::vector<std::string> files;
  for (const json& request : requests) {
    if (!request.is_object() || !IsSuccessfulSign(request)) continue;
    const std::string file = FileOf(request);
    if (std::find(files.begin(), files.end(), file) == files.end()) files.push_back(file);
  }
  return files;
}

}  // namespace

std::vector<std::string> DescribeRequests(const std::vector<json>& requests,
                                          const std::string& package) {
  std::vector<std::string> lines;
  if (!requests.empty()) lines.emplace_back("Requests to the simulated kernel:");
  for (size_t i = 0; i < requests.size(); ++i) {
    if (!requests[i].is_object()) continue;
    lines.push_back(fmt::format("  {}. {}", i + 1, Describe(requests[i])));
  }
  const std::vector<std::string> files = SignedFiles(requests);
  if (!files.empty()) lines.emplace_back("Labels:");
  for (const std::string& file : files) {
    const std::string label = DescribeLabel(file, package).value_or("none");
    lines.push_back(fmt::format("  {}: {}", FileText(file), label));
  }
  return lines;
}

void AddRequests(const std::vector<json>& requests, const std::string& package,
                 nlohmann::ordered_json& facts) {
  facts["requests"] = nlohmann::ordered_json::array();
  for (const json& request : requests) {
    if (!request.is_object()) continue;
    facts["requests"].push_back(nlohmann::ordered_json(request));
    // In the journal, a path that is not UTF-8 has other characters for those bytes.
    if (request.contains("fileHex")) {
      facts["requests"].back()["file"] = EscapeInvalidUtf8(FileOf(request));
    }
  }
  facts["labels"] = nlohmann::ordered_json::array();
  for (const std::string& file : SignedFiles(requests)) {
    facts["labels"].push_back({{"file", EscapeInvalidUtf8(file)}, {"label", nullptr}});
    const auto label = DescribeLabel(file, package);
    if (label) facts["labels"].back()["label"] = *label;
  }
}

}  // namespace Quill::Tool
