// SPDX-License-Identifier: Apache-2.0

#include "simulator/environment.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <quillon/strings.h>

#include "simulator/journal.h"
#include "util/escape.h"

namespace tarnsim {
namespace {

// Escapes the message: it may contain bytes that a terminal interprets.
void PrintDiagnostic(const std::string& message) {
  fprintf(stderr, "tarnsim: %s\n", Quill::EscapeForTerminal(message).c_str());
}

[[noreturn]] void Refuse(const char* variable, const std::string& value) {
  PrintDiagnostic(std::string(variable) + ": cannot understand \"" + value + "\"");
  _exit(2);
}

uint64_t ParseNumber(const char* variable, const std::string& text, int base) {
  char* end = nullptr;
  const uint64_t number = strtoull(text.c_str(), &end, base);
  if (text.empty() || *end != '\0') Refuse(variable, text);
  return number;
}

void ParseInterface(const char* variable, const std::string& value, KernelSetup& setup) {
  if (value == "device") {
    setup.interface = TarnInterface::kDevice;
  } else if (value == "legacy") {
    setup.interface = TarnInterface::kLegacy;
  } else if (value == "none") {
    setup.interface = TarnInterface::kNone;
  } else {
    Refuse(variable, value);
  }
}

void ParseIntegrity(const char* variable, const std::string& value, KernelSetup& setup) {
  setup.integrity.clear();
  for (const std::string& number : SplitString(value, ',')) {
    setup.integrity.push_back(static_cast<uint32_t>(ParseNumber(variable, number, 16)));
  }
  if (setup.integrity.empty()) Refuse(variable, value);
}

void ParseTaskLabel(const char* variable, const std::string& value, KernelSetup& setup) {
  const size_t length = value.size() / 2;
  Bytes label = {static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8)};
  for (size_t i = 0; i < length; ++i) {
    label.push_back(static_cast<uint8_t>(ParseNumber(variable, value.substr(2 * i, 2), 16)));
  }
  if (value.size() % 2 != 0 || label.size() > Quill::kTarnTaskLabelSize) Refuse(variable, value);
  setup.taskLabel = std::move(label);
}

void ParseResetFile(const char* variable, const std::string& value, KernelSetup& setup) {
  const size_t first = value.find(',');
  const size_t second = first == std::string::npos ? first : value.find(',', first + 1);
  if (second == std::string::npos) Refuse(variable, value);
  ResetFile reset;
  reset.wordA = ParseNumber(variable, value.substr(0, first), 16);
  reset.wordB =
      static_cast<uint32_t>(ParseNumber(variable, value.substr(first + 1, second - first - 1), 16));
  reset.path = value.substr(second + 1);
  setup.resetFile = std::move(reset);
}

void ParseReadOnly(const char*, const std::string& value, KernelSetup& setup) {
  setup.readOnly = SplitString(value, ':');
}

void ParseFaults(const char* variable, const std::string& value, KernelSetup& setup) {
  for (const std::string& text : SplitString(value, ',')) {
    const std::vector<std::string> parts = SplitString(text, ':');
    Fault fault{};
    if (parts.size() < 3 || parts.size() > 4 || !CallByName(parts[0], fault.call)) {
      Refuse(variable, text);
    }
    fault.nth = static_cast<int>(ParseNumber(variable, parts[1], 10));
    fault.error = static_cast<int>(ParseNumber(variable, parts[2], 10));
    fault.result = parts.size() == 4 ? static_cast<int>(ParseNumber(variable, parts[3], 0)) : -1;
    setup.faults.push_back(fault);
  }
}

constexpr struct {
  const char* name;
  void (*parse)(const char* variable, const std::string& value, KernelSetup& setup);
} kVariables[] = {
    {"TARNSIM_INTERFACE", ParseInterface},  {"TARNSIM_INTEGRITY", ParseIntegrity},
    {"TARNSIM_TASK_LABEL", ParseTaskLabel}, {"TARNSIM_RESET_FILE", ParseResetFile},
    {"TARNSIM_READ_ONLY", ParseReadOnly},   {"TARNSIM_FAIL", ParseFaults},
};

// Writes each line with one write, so that the lines of several processes do not mix. Opens the
// file for each line, so that the program never finds an extra open descriptor.
void Append(const std::string& path, const std::string& line) {
  const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (file < 0 || write(file, line.data(), line.size()) < 0) {
    PrintDiagnostic("cannot write to the journal " + path);
  }
  if (file >= 0) close(file);
}

}  // namespace

std::unique_ptr<SimulatedKernel> KernelFromEnvironment() {
  if (getenv("TARNSIM_INTERFACE") == nullptr) return nullptr;
  KernelSetup setup;
  setup.labelsInFiles = true;
  for (const auto& variable : kVariables) {
    if (const char* value = getenv(variable.name)) variable.parse(variable.name, value, setup);
  }
  const char* path = getenv("TARNSIM_JOURNAL");
  const std::string journal = path != nullptr ? path : "";
  return std::make_unique<SimulatedKernel>(std::move(setup), [journal](const Request& request) {
    if (!journal.empty()) Append(journal, ToJson(request) + "\n");
  });
}

}  // namespace tarnsim
