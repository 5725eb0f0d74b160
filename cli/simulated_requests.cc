// SPDX-License-Identifier: Apache-2.0

#include "cli/simulated_requests.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <system_error>

#include "cli/file_label.h"
#include "cli/output.h"

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
  const int error = request.value("errno", 0);
  const int result = request.value("result", 0);
  if (result == 0) return text + ", done";
  return text + ", refused: " + std::generic_category().message(error);
}

bool IsSuccessfulSign(const json& request) {
  return request.value("request", "") == "sign" && request.value("result", -1) == 0;
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

bool ShowRequests(const std::vector<json>& requests, const std::string& package) {
  if (requests.empty()) return true;
  bool shown = PrintLine("Requests to the simulated kernel:");
  for (size_t i = 0; i < requests.size(); ++i) {
    if (!requests[i].is_object()) continue;
    shown = shown && PrintLine(fmt::format("  {}. {}", i + 1, Describe(requests[i])));
  }
  const std::vector<std::string> files = SignedFiles(requests);
  if (!files.empty()) shown = shown && PrintLine("Labels:");
  for (const std::string& file : files) {
    const std::string label = DescribeLabel(file, package).value_or("none");
    shown = shown && PrintLine(fmt::format("  {}: {}", FileText(file), label));
  }
  return shown;
}

}  // namespace Quill::Tool
