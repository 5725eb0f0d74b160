// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/commands.h"

namespace Quill::Tool {

// What a command that asks the kernel has to say.
struct KernelReport {
  ExitStatus status = kDone;
  std::vector<std::string> lines;  // for people
  std::string summary;             // the last line
  bool isObstacle = false;         // the summary says why nothing was done
  nlohmann::ordered_json facts = nlohmann::ordered_json::object();  // for programs; in UTF-8
};

// Returns a report of a command that did nothing.
[[nodiscard]] KernelReport Obstacle(ExitStatus status, const std::string& reason);

// The second run of a simulated command sends its report as bytes to the first one. ReportFromBytes
// returns nothing for bytes that no healthy run sends.
[[nodiscard]] std::string ReportToBytes(const KernelReport& report);
[[nodiscard]] std::optional<KernelReport> ReportFromBytes(const std::string& bytes);

// Returns the JSON object of a command, as one line.
[[nodiscard]] std::string ToJson(const KernelReport& report, const std::string& command);

}  // namespace Quill::Tool
