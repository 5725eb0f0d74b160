// SPDX-License-Identifier: Apache-2.0

#include "simulator/kernel_path.h"

#include <charconv>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "integrity/tarn_abi.h"

namespace tarnsim {

bool IsDevicePath(const char* path) {
  return path != nullptr && strcmp(path, Quill::kTarnDevice) == 0;
}

bool IsLegacyMarkPath(const char* path) {
  return path != nullptr && strcmp(path, Quill::kTarnLegacyValue) == 0;
}

bool ParseTaskFile(const char* name, Call& call, int& pid) {
  std::string_view path(name == nullptr ? "" : name);
  constexpr std::string_view kStart = "/proc/";
  constexpr std::string_view kValue = "/integrity/value";
  constexpr std::string_view kLabel = "/integrity/label";
  if (path.substr(0, kStart.size()) != kStart) return false;
  path.remove_prefix(kStart.size());
  const std::string_view task = path.substr(0, path.find('/'));
  path.remove_prefix(task.size());
  if (path != kValue && path != kLabel) return false;
  call = path == kValue ? Call::kReadIntegrity : Call::kReadLabel;
  pid = 0;
  return task == "self" ||
         std::from_chars(task.data(), task.data() + task.size(), pid).ptr == path.data();
}

bool IsKernelFile(const std::string& path) {
  std::error_code problem;
  const auto resolved = std::filesystem::weakly_canonical(path, problem);
  Call call{};
  int pid = 0;
  for (const std::string& name : {path, resolved.string()}) {
    if (IsDevicePath(name.c_str()) || ParseTaskFile(name.c_str(), call, pid)) return true;
  }
  return false;
}

}  // namespace tarnsim
