// SPDX-License-Identifier: Apache-2.0

#include "manual/completion.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>
#include <vector>

#include "cli/arguments.h"

namespace Quill::Tool {
namespace {

constexpr char kOrigin[] =
    "# SPDX-License-Identifier: Apache-2.0\n# Made from the program's own help.\n";

using Options = std::vector<const CLI::Option*>;

// Returns the names of an option as they are typed, the short ones first.
std::vector<std::string> NamesOf(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& letter : option.get_snames()) names.push_back('-' + letter);
  for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
  return names;
}

Options OptionsOf(const CLI::App& parser) {
  return parser.get_options([](const CLI::Option* option) { return !option->get_positional(); });
}

// Returns true if a word that is no option may be a file.
bool TakesFiles(const CLI::App& parser) {
  const Options options = parser.get_options();
  return std::any_of(options.begin(), options.end(), [](const CLI::Option* option) {
    return option->get_positional() && KindOfValue(*option).isFile;
  });
}

// Returns the first statement of a description.
std::string Brief(const std::string& description) {
  size_t end = description.size();
  for (const char* mark : {". ", "; ", ": ", " ("}) end = std::min(end, description.find(mark));
  return description.substr(0, end);
}

// Returns the text as one word of all three shells.
std::string Quoted(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + '\'';
}

std::string CommandNames(const CLI::App& program) {
  std::vector<std::string> names;
  for (const CLI::App* command : program.get_subcommands({})) names.push_back(command->get_name());
  return fmt::format("{}", fmt::join(names, " "));
}

// What bash needs to know of one parser: its options, and for each of them that takes a value, what
// the value may be. The name of an option ends with "=" where "=" was typed behind it.
void AddBashCases(const CLI::App& parser, std::string& options, std::string& values) {
  const std::string command = parser.get_parent() == nullptr ? "" : parser.get_name();
  std::vector<std::string> words;
  for (const CLI::Option* option : OptionsOf(parser)) {
    std::vector<std::string> patterns;
    for (const std::string& name : NamesOf(*option)) {
      words.push_back(name);
      const bool isLong = name[1] == '-';
      if (!IsFlag(*option)) patterns.push_back(Quoted(fmt::format("{} {}", command, name)));
      if (isLong) patterns.push_back(Quoted(fmt::format("{} {}=", command, name)));
    }
    if (ValueName(*option).empty()) continue;
    const ValueKind kind = KindOfValue(*option);
    const char* what = option->get_delimiter() == '\0' ? "OneOf" : "List";
    values += fmt::format(
        "    {}) {} ;;\n", fmt::join(patterns, " | "),
        kind.isFile ? "return"
                    : fmt::format("_quillon_{} {}", what,
                                  Quoted(fmt::format("{}", fmt::join(kind.values, " ")))));
  }
  options += fmt::format("    {}) options={} ;;\n", Quoted(command),
                         Quoted(fmt::format("{}", fmt::join(words, " "))));
}

// Escapes what separates the parts of an argument of _arguments.
std::string ZshText(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (c == ':' || c == '[' || c == ']' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

// Returns what completes a value, for _arguments.
std::string ZshAction(const CLI::Option& option) {
  const ValueKind kind = KindOfValue(option);
  if (kind.isFile) return "_files";
  if (kind.values.empty()) return " ";
  const std::string values = fmt::format("{}", fmt::join(kind.values, " "));
  return option.get_delimiter() == '\0' ? fmt::format("({})", values)
                                        : "_values -s , " + ValueName(option) + ' ' + values;
}

// Returns the arguments of _arguments for one parser.
std::string ZshArgumentTexts(const CLI::App& parser) {
  std::string texts;
  for (const CLI::Option* option : parser.get_options()) {
    if (option->get_positional()) {
      const bool isRepeated = option->get_items_expected_max() > 1;
      const char* start = isRepeated ? "*:" : option->get_required() ? ":" : "::";
      texts +=
          " \\\n    " + Quoted(fmt::format("{}{}:{}", start, option->get_name(/*positional=*/true),
                                           ZshAction(*option)));
      continue;
    }
    const std::string value = ValueName(*option);
    const bool mayRepeat = option->get_items_expected_max() > 1;
    const std::vector<std::string> names = NamesOf(*option);
    for (const std::string& name : names) {
      std::string text = mayRepeat ? "*" : fmt::format("({})", fmt::join(names, " "));
      text += name;
      const bool isLong = name[1] == '-';
      if (!IsFlag(*option)) text += isLong ? "=" : "+";
      if (IsFlag(*option) && !value.empty()) text += isLong ? "=-" : "-";
      text += '[' + ZshText(Brief(option->get_description())) + ']';
      if (!value.empty()) {
        text += fmt::format("{}{}:{}", IsFlag(*option) ? "::" : ":", ZshText(value),
                            ZshAction(*option));
      }
      texts += " \\\n    " + Quoted(text);
    }
  }
  return texts;
}

// Returns fish's options for one option of a parser.
std::string FishOption(const CLI::Option& option) {
  std::string words;
  for (const std::string& letter : option.get_snames()) words += " -s " + letter;
  for (const std::string& name : option.get_lnames()) words += " -l " + name;
  if (!ValueName(option).empty()) {
    const ValueKind kind = KindOfValue(option);
    if (!IsFlag(option)) words += kind.isFile ? " -rF" : " -x";
    std::string values = fmt::format("{}", fmt::join(kind.values, " "));
    if (!values.empty() && option.get_delimiter() != '\0') {
      values = fmt::format("(__fish_append {} {})", option.get_delimiter(), values);
    }
    if (!values.empty()) words += " -a " + Quoted(values);
  }
  return words + " -d " + Quoted(Brief(option.get_description()));
}

}  // namespace

std::string BashCompletion(const CLI::App& program) {
  std::string options;
  std::string values;
  std::string without;  // commands that take no files
  AddBashCases(program, options, values);
  for (const CLI::App* command : program.get_subcommands({})) {
    AddBashCases(*command, options, values);
    if (!TakesFiles(*command))
      without += "    " + Quoted(command->get_name()) + ") compopt +o default ;;\n";
  }
  return kOrigin + fmt::format(R"(
# Offers the words that begin with what was typed, and no files.
_quillon_OneOf() {{
  compopt +o default
  mapfile -t COMPREPLY < <(compgen -P "${{2:-}}" -W "$1" -- "$word")
}}

# The same for the last word of a list with commas.
_quillon_List() {{
  local before=${{word%"${{word##*,}}"}}
  word=${{word##*,}}
  _quillon_OneOf "$1" "$before"
}}

# Without an answer, readline completes the name of a file.
_quillon() {{
  local word=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD - 1]}} command='' option='' options='' i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${{COMP_WORDS[i]}} in
      --) return ;;
      -*) ;;
      *) [ -n "$command" ] || command=${{COMP_WORDS[i]}} ;;
    esac
  done

  # "--name=value" is three words here.
  case $word:$before in
    =:--*) option=$before= word='' ;;
    *:=) option=${{COMP_WORDS[COMP_CWORD - 2]}}= ;;
    *:--*) option=$before ;;
    *:-*) option=-${{before: -1}} ;;
  esac
  case "$command $option" in
{values}    *) option='' ;;
  esac
  [ -z "$option" ] || return

  case $command in
{options}  esac
  case $command:$word in
    *:-*) _quillon_OneOf "$options" ;;
    :*) _quillon_OneOf '{commands}' ;;
  esac
  case $command in
{without}  esac
}}
complete -o default -F _quillon quillon
)",
                               fmt::arg("values", values), fmt::arg("options", options),
                               fmt::arg("commands", CommandNames(program)),
                               fmt::arg("without", without));
}

std::string ZshCompletion(const CLI::App& program) {
  std::string commands;
  std::string cases;
  for (const CLI::App* command : program.get_subcommands({})) {
    commands += "\n      " + Quoted(command->get_name() + ':' + command->get_description());
    cases += fmt::format("  ({})\n  _arguments -s -S{}\n  ;;\n", command->get_name(),
                         ZshArgumentTexts(*command));
  }
  return fmt::format("#compdef quillon\n{}", kOrigin) + fmt::format(R"(
_quillon() {{
  local curcontext=$curcontext state line
  typeset -A opt_args
  _arguments -C -S{} \
    '1:COMMAND:->command' \
    '*::ARGUMENT:->argument'
  case $state in
  (command)
    local -a commands=({}
    )
    _describe COMMAND commands
    return ;;
  (argument) ;;
  (*) return ;;
  esac
  case $line[1] in
{}  esac
}}

_quillon "$@"
)",
                                                                    ZshArgumentTexts(program),
                                                                    commands, cases);
}

std::string FishCompletion(const CLI::App& program) {
  std::string script = kOrigin;
  const auto complete = [&](const std::string& condition, const std::string& words) {
    script += fmt::format("complete -c quillon -n {}{}\n", Quoted(condition), words);
  };
  constexpr char kNoCommand[] = "__fish_use_subcommand";
  complete(kNoCommand, " -f");
  for (const CLI::Option* option : OptionsOf(program)) complete(kNoCommand, FishOption(*option));
  for (const CLI::App* command : program.get_subcommands({})) {
    complete(kNoCommand,
             " -a " + Quoted(command->get_name()) + " -d " + Quoted(command->get_description()));
    const std::string seen = "__fish_seen_subcommand_from " + command->get_name();
    if (!TakesFiles(*command)) complete(seen, " -f");
    for (const CLI::Option* option : OptionsOf(*command)) complete(seen, FishOption(*option));
  }
  return script;
}

}  // namespace Quill::Tool
