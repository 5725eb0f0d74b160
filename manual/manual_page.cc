// SPDX-License-Identifier: Apache-2.0

#include "manual/manual_page.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cctype>
#include <string_view>

#include <quillon/version.h>

#include "cli/arguments.h"
#include "cli/help.h"

namespace Quill::Tool {
namespace {

// Returns the text such that troff prints it as it is: a "-" can be copied into a shell.
std::string Troff(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '\\':
        escaped += "\\e";
        break;
      case '-':
        escaped += "\\-";
        break;
      case '\'':
        escaped += "\\(aq";
        break;
      case '`':
        escaped += "\\(ga";
        break;
      case '^':
        escaped += "\\(ha";
        break;
      case '~':
        escaped += "\\(ti";
        break;
      default:
        escaped += c;
    }
  }
  // A line that starts with a dot is a request.
  return escaped.rfind('.', 0) == 0 ? "\\&" + escaped : escaped;
}

std::string Bold(std::string_view text) { return "\\fB" + Troff(text) + "\\fR"; }
std::string Italic(std::string_view text) { return "\\fI" + Troff(text) + "\\fR"; }

std::string Section(const char* title, const std::string& text) {
  return text.empty() ? "" : fmt::format(".SH {}\n{}", title, text);
}

// Returns an indented paragraph with a heading, whose fonts are set.
std::string Tagged(const std::string& heading, std::string_view text) {
  return fmt::format(".TP\n{}\n{}\n", heading, Troff(text));
}

// Returns "-j, --jobs JOBS" or the like.
std::string OptionHeading(const CLI::Option& option) {
  std::string heading;
  for (const std::string& letter : option.get_snames()) heading += Bold('-' + letter) + ", ";
  for (const std::string& name : option.get_lnames()) heading += Bold("--" + name) + ", ";
  heading.resize(heading.size() - 2);
  const std::string value = ValueName(option);
  if (value.empty()) return heading;
  return heading + (IsFlag(option) ? "[=" + Italic(value) + ']' : ' ' + Italic(value));
}

std::string Reference(const CLI::App& parser) { return Bold(PageName(parser)) + "(1)"; }

std::string SeeAlso(const CLI::App& parser) {
  const CLI::App* program = parser.get_parent();
  std::string text = program == nullptr ? "" : Reference(*program) + ",\n";
  for (const CLI::App* command : (program == nullptr ? parser : *program).get_subcommands({})) {
    if (command != &parser) text += Reference(*command) + ",\n";
  }
  return text + Bold("libquillon") + "(3),\n" + Bold("libtarnsim") + "(7)\n";
}

}  // namespace

std::string PageName(const CLI::App& parser) {
  const CLI::App* program = parser.get_parent();
  return program == nullptr ? parser.get_name() : program->get_name() + '-' + parser.get_name();
}

std::string ManualPage(const CLI::App& parser, const std::string& date) {
  const CLI::App* program = parser.get_parent();
  const std::string name = PageName(parser);
  std::string title = name;
  for (char& c : title) c = static_cast<char>(std::toupper(c));
  std::string brief = parser.get_description();
  brief[0] = static_cast<char>(std::tolower(brief[0]));

  std::string usage = Bold(program == nullptr ? name : "quillon " + parser.get_name()) + " [" +
                      Italic("OPTION") + "]...";
  std::string operands;
  std::string options;
  std::string commands;
  for (const CLI::Option* option : parser.get_options()) {
    if (option->get_positional()) {
      const std::string operand = Italic(option->get_name(/*positional=*/true));
      usage += fmt::format(option->get_required() ? " {}{}" : " [{}]{}", operand,
                           option->get_items_expected_max() > 1 ? "..." : "");
      operands += Tagged(operand, option->get_description());
    } else {
      options += Tagged(OptionHeading(*option), OptionDescription(*option));
    }
  }
  for (const CLI::App* command : parser.get_subcommands({})) {
    commands += Tagged(Reference(*command), command->get_description());
  }
  if (!commands.empty()) usage += fmt::format(" {} [{}]...", Italic("COMMAND"), Italic("ARGUMENT"));

  const HelpNotes& notes = NotesOf(parser);
  std::string examples;
  for (const auto& [purpose, command] : notes.examples) {
    if (!examples.empty()) examples += ".PP\n";
    examples +=
        fmt::format("{}:\n.PP\n.in +4n\n.EX\n{}\n.EE\n.in\n", Troff(purpose), Troff(command));
  }
  std::string statuses;
  for (const auto& [status, meaning] : notes.statuses) {
    statuses += Tagged(Bold(std::to_string(status)), meaning);
  }
  const std::string end = *notes.end == '\0' ? "" : ".PP\n" + Troff(notes.end) + '\n';

  return fmt::format(
             ".\\\" SPDX-License-Identifier: Apache-2.0\n"
             ".\\\" Made from the program's own help.\n"
             ".TH {} 1 {} \"quillon {}\" \"User Commands\"\n",
             Troff(title), date, QUILLON_VERSION) +
         Section("NAME", fmt::format("{} \\- {}\n", Troff(name), Troff(brief))) +
         Section("SYNOPSIS", usage + '\n') +
         Section("DESCRIPTION", Troff(parser.get_description()) + ".\n") +
         Section("ARGUMENTS", operands) + Section("COMMANDS", commands) +
         Section("OPTIONS", options + (statuses.empty() ? end : "")) +
         Section("EXAMPLES", examples) +
         Section("EXIT STATUS", statuses.empty() ? "" : statuses + end) +
         Section("SEE ALSO", SeeAlso(parser));
}

}  // namespace Quill::Tool
