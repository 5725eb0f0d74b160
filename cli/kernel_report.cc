// SPDX-License-Identifier: Apache-2.0

#include "cli/kernel_report.h"

#include "util/escape.h"

namespace Quill::Tool {
namespace {

constexpr int kSchemaVersion = 1;

const char* WordOf(ExitStatus status) {
  switch (status) {
    case kDone:
      return "done";
    case kUnreadable:
      return "unreadable";
    case kUnverified:
      return "unlabelled";
    case kFailed:
    case kUsage:
      break;
  }
  return "failed";
}

}  // namespace

KernelReport Obstacle(ExitStatus status, const std::string& reason) {
  KernelReport report;
  report.status = status;
  report.summary = reason;
  report.isObstacle = true;
  return report;
}

std::string ReportToBytes(const KernelReport& report) {
  std::string bytes;
  nlohmann::ordered_json::to_msgpack(
      {report.status, report.lines, report.summary, report.isObstacle, report.facts}, bytes);
  return bytes;
}

std::optional<KernelReport> ReportFromBytes(const std::string& bytes) {
  try {
    const auto fields = nlohmann::ordered_json::from_msgpack(bytes);
    return KernelReport{static_cast<ExitStatus>(fields.at(0).get<int>()), fields.at(1),
                        fields.at(2), fields.at(3), fields.at(4)};
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;
  }
}

std::string ToJson(const KernelReport& report, const std::string& command) {
  nlohmann::ordered_json object = {{"schemaVersion", kSchemaVersion},
                                   {"command", command},
                                   {"status", WordOf(report.status)},
                                   {"summary", EscapeInvalidUtf8(report.summary)}};
  object.update(report.facts);
  return object.dump(/*indent=*/-1, /*indent_char=*/' ', /*ensure_ascii=*/true);
}

}  // namespace Quill::Tool
