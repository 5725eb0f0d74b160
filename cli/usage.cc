// SPDX-License-Identifier: Apache-2.0

#include "cli/usage.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <limits>
#include <numeric>
#include <set>

#include "util/escape.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

// Returns how many characters must be inserted, removed or replaced to make one text the other.
size_t EditDistance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);  // of the part of `a` that was seen to each start of `b`
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = row[0]++;
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

// Returns "; did you mean ...?" with the name that is most like `text`, or an empty text if none
// is. An abbreviation is like its name.
std::string Suggest(const std::string& text, const std::vector<std::string>& names) {
  constexpr size_t kLongest = 40;
  constexpr size_t kShortestAbbreviation = 4;
  if (text.size() > kLongest) return "";
  const std::string* nearest = nullptr;
  size_t least = std::numeric_limits<size_t>::max();
  for (const std::string& name : names) {
    const bool isAbbreviation = text.size() >= kShortestAbbreviation && StartsWith(name, text);
    const size_t distance = isAbbreviation ? 0 : EditDistance(text, name);
    if (distance > (name.size() < 5 ? 1 : 2) || distance >= least) continue;
    nearest = &name;
    least = distance;
  }
  return nearest == nullptr ? "" : fmt::format("; did you mean \"{}\"?", *nearest);
}

std::vector<std::string> LongOptions(const CLI::App& parser) {
  std::vector<std::string> names;
  for (const CLI::Option* option : parser.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

std::vector<std::string> CommandNames(const CLI::App& program) {
  std::vector<std::string> names;
  for (const CLI::App* command : program.get_subcommands({})) names.push_back(command->get_name());
  return names;
}

std::vector<const CLI::Option*> Operands(const CLI::App& parser) {
  return parser.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

bool IsProbablyFile(std::string_view word) {
  struct stat status = {};
  return EndsWith(word, ".apk") || lstat(std::string(word).c_str(), &status) == 0;
}

std::string UnknownOption(const CLI::App& parser, const Argument& argument) {
  if (!Operands(parser).empty() && IsProbablyFile(argument.word)) {
    return fmt::format("unknown option {}; if it is a file, put -- before it",
                       Quote(argument.word));
  }
  for (const CLI::App* command : parser.get_subcommands({})) {
    if (argument.option.size() < 2 || command->get_option_no_throw(argument.option) == nullptr) {
      continue;
    }
    return fmt::format("{} is an option of commands: put it after the command",
                       Quote(argument.option));
  }
  const bool isLetter = argument.option.size() == 2 && argument.word.size() > 2;
  return fmt::format("unknown option {}{}{}", Quote(argument.option),
                     isLetter ? " in " + Quote(argument.word) : "",
                     isLetter ? "" : Suggest(argument.option, LongOptions(parser)));
}

// Returns an empty text if the option is declared, and has a value if and only if it takes one.
std::string MistakeInOption(const CLI::App& parser, const Argument& argument) {
  if (argument.declared == nullptr) return UnknownOption(parser, argument);
  const std::string valueName = ValueName(*argument.declared);
  if (!IsFlag(*argument.declared)) {
    if (argument.value && !argument.value->empty()) return "";
    return fmt::format("{0} needs a value: {0} {1}", argument.option, valueName);
  }
  if (!argument.value) return "";
  if (valueName.empty()) return argument.option + " takes no value";
  return argument.value->empty()
             ? fmt::format("{0}= needs a value: {0}={1}", argument.option, valueName)
             : "";
}

// Returns an empty text if the number of operands is right.
std::string MistakeInOperands(const CLI::App& parser, const std::vector<std::string_view>& given) {
  std::vector<std::string> names;
  std::vector<std::string> missing;
  size_t most = 0;
  for (const CLI::Option* operand : Operands(parser)) {
    names.push_back(operand->get_name(/*positional=*/true));
    if (operand->get_required() && most >= given.size()) missing.push_back(names.back());
    most += static_cast<size_t>(operand->get_items_expected_max());
  }
  if (!missing.empty()) {
    return fmt::format("missing operand{}: {}", missing.size() == 1 ? "" : "s",
                       fmt::join(missing, " "));
  }
  if (given.size() <= most) return "";
  return fmt::format("unexpected operand {}: {} takes {}", Quote(given[most]), parser.get_name(),
                     fmt::join(names, " "));
}

// Lets the option take only values that `convert` accepts and may change. `values` are all of them,
// or empty.
void Convert(CLI::Option* option, const std::string& what, const std::vector<std::string>& values,
             const std::function<bool(std::string&)>& convert) {
  option->transform(CLI::Validator(
      [option, what, convert](std::string& value) -> std::string {
        if (convert(value)) return "";
        // The parser would put "NAME: " before a returned message.
        throw CLI::ConversionError(
            fmt::format("{} takes {}, not {}", option->get_name(), what, Quote(value)));
      },
      DescribeValues(values)));
}

}  // namespace

std::string FindMistake(const CLI::App& parser, const std::vector<Argument>& arguments) {
  std::vector<std::string_view> operands;
  std::set<const CLI::Option*> given;
  for (const Argument& argument : arguments) {
    if (argument.option.empty()) {
      operands.push_back(argument.word);
      continue;
    }
    std::string mistake = MistakeInOption(parser, argument);
    if (!mistake.empty()) return mistake;
    const CLI::Option& option = *argument.declared;
    const bool isSecond = !given.insert(&option).second;
    if (isSecond && option.get_items_expected_max() == 1 &&
        option.get_multi_option_policy() == CLI::MultiOptionPolicy::Throw) {
      return option.get_name() + " is given twice";
    }
  }
  return MistakeInOperands(parser, operands);
}

std::string UnknownCommand(const CLI::App& program, const std::string& name) {
  const std::vector<std::string> names = CommandNames(program);
  std::string suggestion = Suggest(name, names);
  if (suggestion.empty() && IsProbablyFile(name)) {
    suggestion = "; to verify a file: quillon verify FILE";
  }
  if (suggestion.empty()) suggestion = fmt::format("; the commands are {}", fmt::join(names, ", "));
  return fmt::format("unknown command {}{}", Quote(name), suggestion);
}

void AcceptOnly(CLI::Option* option, const std::string& what,
                const std::function<bool(const std::string&)>& accepts) {
  Convert(option, what, {}, accepts);
}

void AcceptOneOf(CLI::Option* option, const std::string& what,
                 const std::vector<std::string>& values) {
  Convert(option, what, values, [values](const std::string& value) {
    return std::find(values.begin(), values.end(), value) != values.end();
  });
}

void AcceptText(CLI::Option* option) {
  AcceptOnly(option, "text", [](const std::string&) { return true; });
}

void AcceptNumbers(CLI::Option* option, int32_t least, int32_t most) {
  const std::string range = most == std::numeric_limits<int32_t>::max()
                                ? fmt::format("{} up", least)
                                : fmt::format("{} to {}", least, most);
  constexpr int32_t kFew = 9;  // values that are worth a list
  std::vector<std::string> values;
  for (int64_t value = least; most <= least + kFew && value <= most; ++value) {
    values.push_back(std::to_string(value));
  }
  Convert(option, "a number from " + range, values, [least, most](std::string& value) {
    int32_t number = 0;
    const char* textEnd = value.data() + value.size();
    const auto [end, error] = std::from_chars(value.data(), textEnd, number);
    if (error != std::errc() || end != textEnd || number < least || number > most) return false;
    value = std::to_string(number);  // the parser would read "010" as octal
    return true;
  });
}

}  // namespace Quill::Tool
