// SPDX-License-Identifier: Apache-2.0

#include "simulator/environment.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "simulator/diagnostic.h"
#include "simulator/fault.h"
#include "simulator/journal.h"
#include "simulator/kernel_path.h"
#include "simulator/number.h"
#include "util/escape.h"

namespace tarnsim {
namespace {

constexpr char kJournal[] = "TARNSIM_JOURNAL";

// `element` is the value, or the part of it that is wrong.
[[noreturn]] void Refuse(const char* variable, std::string_view element,
                         const std::string& problem) {
  PrintDiagnostic(std::string(variable) + ": cannot use " + Quill::Quote(element) + ": " + problem);
  _exit(2);
}

template <typename Number>
Number ParseHexOrRefuse(const char* variable, std::string_view text) {
  const std::optional<Number> number = ParseHex<Number>(text);
  if (number) return *number;
  Refuse(variable, text,
         "it is no hexadecimal number of at most " + std::to_string(sizeof(Number) * 8) + " bits");
}

void ParseInterface(const char* variable, const std::string& value, KernelSetup& setup) {
  if (value == "device") {
    setup.interface = TarnInterface::kDevice;
  } else if (value == "legacy") {
    setup.interface = TarnInterface::kLegacy;
  } else if (value == "none") {
    setup.interface = TarnInterface::kNone;
  } else {
    Refuse(variable, value, "it is not device, legacy or none");
  }
}

void ParseIntegrity(const char* variable, const std::string& value, KernelSetup& setup) {
  setup.integrity.clear();
  for (const std::string& number : SplitSetting(value, ',')) {
    setup.integrity.push_back(ParseHexOrRefuse<uint32_t>(variable, number));
  }
}

void ParseTaskLabel(const char* variable, const std::string& value, KernelSetup& setup) {
  const size_t length = value.size() / 2;
  if (value.size() % 2 != 0) Refuse(variable, value, "a digit of the last byte is missing");
  Bytes label = {static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8)};
  if (label.size() + length > Quill::kTarnTaskLabelSize) {
    Refuse(variable, value, "a task's label has at most 256 bytes");
  }
  for (size_t i = 0; i < length; ++i) {
    const std::string digits = value.substr(2 * i, 2);
    const std::optional<uint8_t> byte = ParseNumber<uint8_t>(digits, 16);
    if (!byte) Refuse(variable, digits, "a byte has two hexadecimal digits");
    label.push_back(*byte);
  }
  setup.taskLabel = std::move(label);
}

void ParseResetFile(const char* variable, const std::string& value, KernelSetup& setup) {
  const size_t first = value.find(',');
  const size_t second = first == std::string::npos ? first : value.find(',', first + 1);
  if (second == std::string::npos || second + 1 == value.size()) {
    Refuse(variable, value, "it is not A,B,PATH");
  }
  ResetFile reset;
  reset.wordA = ParseHexOrRefuse<uint64_t>(variable, value.substr(0, first));
  reset.wordB = ParseHexOrRefuse<uint32_t>(variable, value.substr(first + 1, second - first - 1));
  reset.path = value.substr(second + 1);
  setup.resetFile = std::move(reset);
}

// Paths are compared with those of open files, in which the kernel has resolved links.
void ParseReadOnly(const char* variable, const std::string& value, KernelSetup& setup) {
  for (const std::string& path : SplitSetting(value, ':')) {
    if (path.empty() || path[0] != '/') Refuse(variable, path, "it is no absolute path");
    std::error_code error;
    const auto resolved = std::filesystem::weakly_canonical(path, error);
    if (error) Refuse(variable, path, error.message());
    setup.readOnly.push_back(resolved);
  }
}

void ParseFaults(const char* variable, const std::string& value, KernelSetup& setup) {
  for (const std::string& text : SplitSetting(value, ',')) {
    Fault fault{};
    const std::string problem = ParseFault(text, fault);
    if (!problem.empty()) Refuse(variable, text, problem);
    setup.faults.push_back(fault);
  }
}

// Sets a variable that has a value. Some programs read the environment where it was at the start,
// or have a setenv of their own, so setenv would not do.
void SetInPlace(const std::string& variable, const std::string& value) {
  const std::string start = variable + '=';
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (strncmp(*entry, start.c_str(), start.size()) != 0) continue;
    *entry = strdup((start + value).c_str());  // never freed: the environment refers to it
    return;
  }
}

// Makes the path absolute for this process and its children, which may change their folder.
std::filesystem::path MakeAbsolute(const char* variable, const std::string& value) {
  std::error_code problem;
  auto path = std::filesystem::absolute(value, problem);
  if (value.empty() || problem) Refuse(variable, value, "it is no path");
  SetInPlace(variable, path);
  return path;
}

void PrepareLabels(const char* variable, const std::string& value, KernelSetup& /*setup*/) {
  const auto path = MakeAbsolute(variable, value);
  std::error_code problem;
  std::filesystem::create_directories(path, problem);
  if (problem) Refuse(variable, value, problem.message());
}

void PrepareJournal(const char* variable, const std::string& value, KernelSetup& /*setup*/) {
  const auto path = MakeAbsolute(variable, value);
  if (IsKernelFile(path)) Refuse(variable, value, "it is a file of the simulated kernel");
  const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666);
  if (file < 0) Refuse(variable, value, std::generic_category().message(errno));
  close(file);
}

constexpr struct {
  const char* name;
  void (*parse)(const char* variable, const std::string& value, KernelSetup& setup);
} kVariables[] = {
    {"TARNSIM_INTERFACE", ParseInterface},  {"TARNSIM_INTEGRITY", ParseIntegrity},
    {"TARNSIM_TASK_LABEL", ParseTaskLabel}, {"TARNSIM_RESET_FILE", ParseResetFile},
    {"TARNSIM_READ_ONLY", ParseReadOnly},   {"TARNSIM_FAIL", ParseFaults},
    {"TARNSIM_LABELS", PrepareLabels},      {kJournal, PrepareJournal},
};

// A misspelt name would leave its setting without effect.
void RefuseUnknownVariables() {
  constexpr std::string_view kPrefix = "TARNSIM_";
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    if (text.substr(0, kPrefix.size()) != kPrefix) continue;
    const std::string name(text.substr(0, text.find('=')));
    const bool isKnown = std::any_of(std::begin(kVariables), std::end(kVariables),
                                     [&](const auto& variable) { return name == variable.name; });
    if (isKnown) continue;
    PrintDiagnostic(name + ": there is no such setting");
    _exit(2);
  }
}

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
  RefuseUnknownVariables();
  KernelSetup setup;
  setup.labelsInFiles = true;
  for (const auto& variable : kVariables) {
    if (const char* value = getenv(variable.name)) variable.parse(variable.name, value, setup);
  }
  const char* path = getenv(kJournal);
  const std::string journal = path != nullptr ? path : "";
  return std::make_unique<SimulatedKernel>(std::move(setup), [journal](const Request& request) {
    if (!journal.empty()) Append(journal, ToJson(request) + "\n");
  });
}

}  // namespace tarnsim
