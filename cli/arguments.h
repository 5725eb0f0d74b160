// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace Quill::Tool {

using Words = std::vector<std::string>;

// One operand, or one option with its value, of a command line.
struct Argument {
  std::string_view word;  // the word that it is, or is part of
  std::string option;     // as "--sdk", or "-j" of the word "-qj4"; empty: this is an operand
  const CLI::Option* declared = nullptr;  // null: an operand, or an option that the parser lacks
  std::optional<std::string_view> value;  // of an option; it may be part of the same word
};

// Returns true for a word that is an option, or "--", if none of the words before it is "--".
[[nodiscard]] bool LooksLikeOption(std::string_view word);

// Returns true for an option that may do without a value: it takes none, or one after "=" alone.
[[nodiscard]] bool IsFlag(const CLI::Option& option);

// Returns what the help calls the option's value; empty if it takes none.
[[nodiscard]] std::string ValueName(const CLI::Option& option);

// What the values of an option or operand are.
struct ValueKind {
  bool isFile = true;               // the name of one; so unless something else is declared
  std::vector<std::string> values;  // all that there are; empty: any
};
[[nodiscard]] ValueKind KindOfValue(const CLI::Option& option);

// Returns the description of a check that keeps these values, or that keeps none, for KindOfValue.
[[nodiscard]] std::string DescribeValues(const std::vector<std::string>& values);

// Takes words apart as GNU getopt_long does, but does not complete abbreviated options. The result
// refers to the words and to the parser.
[[nodiscard]] std::vector<Argument> TakeApart(const CLI::App& parser, Words::const_iterator first,
                                              Words::const_iterator last);

// Parses arguments in which FindMistake found none. Every operand and value is taken literally,
// which the parser does not do by itself: it takes "[a,b]" as a list, and rejects a name with a
// leading dash even after "--". Values with a delimiter are left to it. Throws CLI::ParseError for
// a value that an option does not take.
void ParseLiterally(CLI::App& parser, const std::vector<Argument>& arguments);

}  // namespace Quill::Tool
