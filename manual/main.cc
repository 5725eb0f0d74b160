// SPDX-License-Identifier: Apache-2.0

// Writes the tool's manual pages and completion scripts, made from the declaration of its commands
// and options.
// usage: quillon_manual FOLDER DATE    DATE is that of the version, such as 2026-01-31

#include <CLI/CLI.hpp>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "cli/program.h"
#include "manual/completion.h"
#include "manual/manual_page.h"

namespace {

void Write(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file.exceptions(std::ios::failbit | std::ios::badbit);
  file << text;
  file.close();
}

void WriteAll(const std::filesystem::path& folder, const std::string& date) {
  using namespace Quill::Tool;
  CLI::App program;
  const std::vector<DeclaredCommand> commands = DeclareProgram(program);
  const auto writePage = [&](const CLI::App& parser) {
    Write(folder / "man1" / (PageName(parser) + ".1"), ManualPage(parser, date));
  };
  writePage(program);
  for (const DeclaredCommand& command : commands) writePage(*command.parser);
  Write(folder / "bash" / "quillon", BashCompletion(program));
  Write(folder / "zsh" / "_quillon", ZshCompletion(program));
  Write(folder / "fish" / "quillon.fish", FishCompletion(program));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  try {
    WriteAll(argv[1], argv[2]);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "quillon_manual: " << error.what() << '\n';
    return 1;
  }
}
