// SPDX-License-Identifier: Apache-2.0

#include "cli/operands.h"

#include <CLI/CLI.hpp>
#include <utility>

namespace Quill::Tool {
namespace {

// A first character that has no meaning to the option parser, whatever follows.
constexpr char kMark = '=';

// Removes the mark from an operand again. Returns an error message for the parser; empty on
// success.
std::string Restore(std::string& text) {
  if (text.empty() || text[0] != kMark) return "put -- before \"" + text + "\"";
  text.erase(0, 1);
  return {};
}

// Returns true when the value of the option is the next argument, not part of `spelling`.
bool TakesNextArgument(const CLI::App& parser, const std::string& spelling) {
  const auto takesValue = [&parser](const std::string& name) {
    const CLI::Option* option = parser.get_option_no_throw(name);
    return option != nullptr && option->get_items_expected_min() > 0;
  };
  if (spelling[1] == '-') return takesValue(spelling);
  // In a group of letters the first one that takes a value takes the rest of the group as its
  // value.
  for (size_t i = 1; i < spelling.size(); ++i) {
    if (takesValue({'-', spelling[i]})) return i + 1 == spelling.size();
  }
  return false;
}

}  // namespace

void TakeOperandsLiterally(CLI::App& parser) {
  const auto isOperand = [](const CLI::Option* option) { return option->get_positional(); };
  for (CLI::Option* option : parser.get_options(isOperand)) {
    option->transform(CLI::Validator(Restore, ""));
  }
  // UnexpectedArguments reports extra operands, spelled as the user gave them.
  parser.allow_extras();
}

void SpellOperands(const CLI::App& parser, size_t first, std::vector<std::string>& arguments) {
  std::vector<std::string> spelled(arguments.begin(),
                                   arguments.begin() + static_cast<ptrdiff_t>(first));
  bool optionsEnded = false;
  for (size_t i = first; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (optionsEnded || argument.size() < 2 || argument[0] != '-') {
      spelled.push_back(kMark + argument);
    } else if (argument == "--") {
      optionsEnded = true;
    } else {
      spelled.push_back(argument);
      if (TakesNextArgument(parser, argument) && i + 1 < arguments.size()) {
        spelled.push_back(arguments[++i]);
      }
    }
  }
  arguments = std::move(spelled);
}

std::vector<std::string> UnexpectedArguments(const CLI::App& parser) {
  std::vector<std::string> arguments = parser.remaining();
  for (std::string& argument : arguments) {
    if (argument[0] == kMark) argument.erase(0, 1);
  }
  return arguments;
}

}  // namespace Quill::Tool
