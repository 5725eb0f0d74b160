// SPDX-License-Identifier: Apache-2.0

#include "cli/help.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

#include "cli/arguments.h"

namespace Quill::Tool {
namespace {

constexpr size_t kWidth = 79;  // a terminal of 80 columns may break a line that fills it

// Returns the text, which starts in this column, with line breaks between its words and its later
// lines indented.
std::string Wrap(std::string_view text, size_t column) {
  std::string wrapped;
  size_t lineEnd = column;
  while (!text.empty()) {
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(std::min(word.size() + 1, text.size()));
    if (lineEnd == column) {
      lineEnd += word.size();
    } else if (lineEnd + 1 + word.size() <= kWidth) {
      wrapped += ' ';
      lineEnd += 1 + word.size();
    } else {
      wrapped += '\n' + std::string(column, ' ');
      lineEnd = column + word.size();
    }
    wrapped += word;
  }
  return wrapped + '\n';
}

// Returns a name and its description, which starts in this column.
std::string Entry(const std::string& name, std::string_view description, size_t column) {
  const bool fits = name.size() + 2 <= column;
  const std::string gap =
      fits ? std::string(column - name.size(), ' ') : '\n' + std::string(column, ' ');
  return name + gap + Wrap(description, column);
}

// Returns "  -j, --jobs JOBS" or the like.
std::string OptionName(const CLI::Option& option) {
  std::string name = "  ";
  for (const std::string& letter : option.get_snames()) name += '-' + letter + ", ";
  if (option.get_snames().empty()) name += "    ";
  for (const std::string& text : option.get_lnames()) name += "--" + text + ", ";
  name.resize(name.size() - 2);
  const std::string value = ValueName(option);
  if (value.empty()) return name;
  return name + (IsFlag(option) ? "[=" + value + ']' : ' ' + value);
}

// Returns " FILE", " [FILE]..." or the like.
std::string OperandUsage(const CLI::Option& operand) {
  const std::string name = operand.get_name(/*positional=*/true);
  return fmt::format(operand.get_required() ? " {}{}" : " [{}]{}", name,
                     operand.get_items_expected_max() > 1 ? "..." : "");
}

class HelpFormatter : public CLI::FormatterBase {
 public:
  explicit HelpFormatter(HelpNotes notes) : notes_(std::move(notes)) {}

  std::string make_help(const CLI::App* parser, std::string name,
                        CLI::AppFormatMode /*mode*/) const override {
    std::string usage;
    std::string operands;
    std::string options;
    std::string commands;
    constexpr size_t kColumn = 27;
    constexpr size_t kShortColumn = 20;
    for (const CLI::App* command : parser->get_subcommands({})) {
      commands += Entry("  " + command->get_name(), command->get_description(), kShortColumn);
    }
    if (!commands.empty()) usage = " COMMAND [ARGUMENT]...";
    for (const CLI::Option* option : parser->get_options()) {
      if (option->get_positional()) {
        usage += OperandUsage(*option);
        operands +=
            Entry("  " + option->get_name(/*positional=*/true), option->get_description(), kColumn);
      } else {
        options += Entry(OptionName(*option), OptionDescription(*option), kColumn);
      }
    }
    return fmt::format("Usage: {} [OPTION]...{}\n{}", name, usage,
                       Wrap(parser->get_description() + '.', 0)) +
           Section("Arguments", operands) + Section("Commands", commands) +
           Section("Options", options) + Notes();
  }

  const HelpNotes& GetNotes() const { return notes_; }

 private:
  static std::string Section(const char* title, const std::string& entries) {
    return entries.empty() ? "" : fmt::format("\n{}:\n{}", title, entries);
  }

  std::string Notes() const {
    constexpr size_t kIndent = 6;
    constexpr size_t kStatusColumn = 5;
    std::string examples;
    for (const auto& [purpose, command] : notes_.examples) {
      examples += Entry(fmt::format("  {}", command), purpose, kIndent);
    }
    std::string statuses;
    for (const auto& [status, meaning] : notes_.statuses) {
      statuses += Entry(fmt::format("  {}", static_cast<int>(status)), meaning, kStatusColumn);
    }
    std::string end(notes_.end);
    return Section("Examples", examples) + Section("Exit status", statuses) +
           (end.empty() ? "" : '\n' + Wrap(end, 0));
  }

  HelpNotes notes_;
};

}  // namespace

void SetHelp(CLI::App& parser, HelpNotes notes) {
  parser.formatter(std::make_shared<HelpFormatter>(std::move(notes)));
}

const HelpNotes& NotesOf(const CLI::App& parser) {
  return static_cast<const HelpFormatter&>(*parser.get_formatter()).GetNotes();
}

std::string OptionDescription(const CLI::Option& option) {
  const std::string& standard = option.get_default_str();
  return option.get_description() + (standard.empty() ? "" : " (default: " + standard + ')');
}

std::string HelpText(const CLI::App& parser) {
  const CLI::App* program = parser.get_parent();
  return parser.help(program == nullptr ? "" : program->get_name());
}

}  // namespace Quill::Tool
