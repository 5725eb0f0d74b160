// SPDX-License-Identifier: Apache-2.0

#include "cli/operands.h"

#include <CLI/CLI.hpp>
#include <utility>

namespace Quill::Tool {
namespace {

// Starts no option, list, empty value or mark of the parser's, whatever follows.
constexpr char kMark = '=';

// Turns an operand back, for the parser of options; what is wrong with it, or nothing.
std::string Restore(std::string& text) {
  if (text.empty() || text[0] != kMark) return "put -- before \"" + text + "\"";
  text.erase(0, 1);
  return {};
}

// True when the option, as it is spelled there, has its value in the argument behind it.
bool TakesNextArgument(const CLI::App& parser, const std::string& spelling) {
  const auto takesValue = [&parser](const std::string& name) {
    const CLI::Option* option = parser.get_option_no_throw(name);
    return option != nullptr && option->get_items_expected_min() > 0;
  };
  if (spelling[1] == '-') return takesValue(spelling);
  // Of several letters the first that takes a value takes the others for it.
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
  // One operand too many is reported by UnexpectedArguments, as it was given.
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
