// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cli/arguments.h"

namespace Quill::Tool {

// What is wrong with a command line, in one line that says what was probably meant. The lines are
// not escaped.

// Returns the first mistake in the arguments of `parser`, or an empty text. The values of options
// are left to their checks.
[[nodiscard]] std::string FindMistake(const CLI::App& parser,
                                      const std::vector<Argument>& arguments);

// Describes a command that `program` does not have.
[[nodiscard]] std::string UnknownCommand(const CLI::App& program, const std::string& name);

// Lets the option take only values that `accepts`. `what` names them: "--sdk takes WHAT, not ...".
void AcceptOnly(CLI::Option* option, const std::string& what,
                const std::function<bool(const std::string&)>& accepts);

// Lets the option take only these values.
void AcceptOneOf(CLI::Option* option, const std::string& what,
                 const std::vector<std::string>& values);

// Lets the option take any text. It is no file's name, so completion offers none.
void AcceptText(CLI::Option* option);

// Lets the option take only decimal numbers from `least` to `most`. The largest int32_t as `most`
// is not mentioned in messages.
void AcceptNumbers(CLI::Option* option, int32_t least, int32_t most);

}  // namespace Quill::Tool
