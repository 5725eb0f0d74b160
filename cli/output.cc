// SPDX-License-Identifier: Apache-2.0

#include "cli/output.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "util/escape.h"

namespace Quill::Tool {

bool PrintText(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) {
    return true;
  }
  const int error = errno;
  PrintDiagnostic("cannot write to standard output: " + std::generic_category().message(error));
  return false;
}

bool PrintLine(std::string_view line) { return PrintText(EscapeForTerminal(line) + '\n'); }

void PrintErrorLine(std::string_view line) {
  const std::string text = EscapeForTerminal(line) + '\n';
  std::fwrite(text.data(), 1, text.size(), stderr);
}

void PrintDiagnostic(std::string_view message) {
  PrintErrorLine(fmt::format("quillon: {}", message));
}

std::string FileText(const std::string& file) {
  const bool isPlain =
      !file.empty() && file.find_first_of(":,") == std::string::npos && file[0] != '"';
  return isPlain ? file : Quote(file);
}

std::string NameText(const std::string& name) {
  constexpr std::string_view kPlain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._";
  return name.find_first_not_of(kPlain) == std::string::npos ? name : Quote(name);
}

}  // namespace Quill::Tool
