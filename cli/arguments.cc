// SPDX-License-Identifier: Apache-2.0

#include "cli/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>
#include <utility>

namespace Quill::Tool {
namespace {

// A first character that has no meaning to the parser, whatever follows.
constexpr char kMark = '=';

// How the parser joins the name of a value and the description of its check.
constexpr std::string_view kCheck = ":one of";

// Removes the mark from an operand or a value. Returns an error message for the parser; empty on
// success.
std::string RemoveMark(std::string& text) {
  if (text.empty() || text[0] != kMark) return "unexpected argument";
  text.erase(0, 1);
  return {};
}

// Returns true for an option or operand whose values are taken whole, so not for "A,B,C".
bool IsMarked(const CLI::Option* option) {
  return !IsFlag(*option) && option->get_delimiter() == '\0';
}

class Splitter {
 public:
  Splitter(const CLI::App& parser, Words::const_iterator first, Words::const_iterator last)
      : parser_(parser), next_(first), last_(last) {}

  std::vector<Argument> Split() {
    while (next_ != last_) {
      const std::string& word = *next_++;
      if (optionsEnded_ || !LooksLikeOption(word)) {
        arguments_.push_back({word, "", nullptr, std::nullopt});
      } else if (word == "--") {
        optionsEnded_ = true;
      } else if (word[1] == '-') {
        AddLong(word);
      } else {
        AddLetters(word);
      }
    }
    return std::move(arguments_);
  }

 private:
  const CLI::Option* Find(const std::string& name) const {
    return name.size() < 2 ? nullptr : parser_.get_option_no_throw(name);
  }

  // Adds an option whose value, if it needs one and none is attached, is the next word.
  void Add(std::string_view word, const std::string& name,
           std::optional<std::string_view> attached) {
    const CLI::Option* option = Find(name);
    if (option != nullptr && !IsFlag(*option) && !attached && next_ != last_) attached = *next_++;
    arguments_.push_back({word, name, option, attached});
  }

  void AddLong(std::string_view word) {
    const size_t equals = word.find('=');
    std::optional<std::string_view> value;
    if (equals != std::string_view::npos) value = word.substr(equals + 1);
    Add(word, std::string(word.substr(0, equals)), value);
  }

  // In a group of letters the first option that needs a value takes the rest of the group.
  void AddLetters(std::string_view word) {
    // "-json" is a mistake for "--json", not "-j" with the value "son".
    if (word.size() > 2 && Find('-' + std::string(word)) != nullptr) {
      arguments_.push_back({word, std::string(word), nullptr, std::nullopt});
      return;
    }
    for (size_t i = 1; i < word.size(); ++i) {
      const std::string name = {'-', word[i]};
      const CLI::Option* option = Find(name);
      if (option == nullptr) {
        arguments_.push_back({word, i == 1 ? std::string(word) : name, nullptr, std::nullopt});
        return;
      }
      if (!IsFlag(*option) && i + 1 < word.size()) return Add(word, name, word.substr(i + 1));
      Add(word, name, std::nullopt);
    }
  }

  const CLI::App& parser_;
  Words::const_iterator next_;
  Words::const_iterator last_;
  bool optionsEnded_ = false;
  std::vector<Argument> arguments_;
};

}  // namespace

bool LooksLikeOption(std::string_view word) { return word.size() >= 2 && word[0] == '-'; }

bool IsFlag(const CLI::Option& option) { return option.get_items_expected_max() == 0; }

std::string ValueName(const CLI::Option& option) {
  const std::string name = option.get_type_name();
  return name.substr(0, name.find(kCheck));  // a check's description would follow
}

ValueKind KindOfValue(const CLI::Option& option) {
  const std::string name = option.get_type_name();
  const size_t check = name.find(kCheck);
  if (check == std::string::npos) return {};
  ValueKind kind = {/*isFile=*/false, {}};
  std::istringstream values(name.substr(check + kCheck.size()));
  for (std::string value; values >> value;) kind.values.push_back(value);
  return kind;
}

std::string DescribeValues(const std::vector<std::string>& values) {
  std::string description(kCheck.substr(1));
  for (const std::string& value : values) description += ' ' + value;
  return description;
}

std::vector<Argument> TakeApart(const CLI::App& parser, Words::const_iterator first,
                                Words::const_iterator last) {
  return Splitter(parser, first, last).Split();
}

void ParseLiterally(CLI::App& parser, const std::vector<Argument>& arguments) {
  for (CLI::Option* option : parser.get_options(IsMarked)) {
    option->transform(CLI::Validator(RemoveMark, ""));
  }
  Words options;
  Words operands;
  for (const Argument& argument : arguments) {
    if (argument.option.empty()) {
      operands.push_back(kMark + std::string(argument.word));
      continue;
    }
    options.push_back(argument.option);
    if (!argument.value) continue;
    if (IsFlag(*argument.declared)) {
      options.back() += '=' + std::string(*argument.value);
    } else {
      options.push_back(std::string(*argument.value));
      if (IsMarked(argument.declared)) options.back().insert(0, 1, kMark);
    }
  }
  // The "--" ends the values of an option that takes several.
  options.emplace_back("--");
  options.insert(options.end(), std::make_move_iterator(operands.begin()),
                 std::make_move_iterator(operands.end()));
  std::reverse(options.begin(), options.end());
  parser.parse(std::move(options));
}

}  // namespace Quill::Tool
