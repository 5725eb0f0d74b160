// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Quill::Tool {

// Keeps the arguments that are no options, such as file names, from being interpreted: the option
// parser takes "[a,b]" for a list, "++" for the end of a subcommand, and gives up on a name with a
// leading dash although "--" stands before it. Between the two calls such an argument is spelled in
// a way that means nothing to the parser; the parser's own options turn it back.

// Prepares a subcommand's parser, after its options were declared.
void TakeOperandsLiterally(CLI::App& parser);

// Spells the operands among the arguments that follow the subcommand's name, `arguments[first]` and
// later, and removes the "--" before them.
void SpellOperands(const CLI::App& parser, size_t first, std::vector<std::string>& arguments);

// The arguments that the parser had no use for, as they were given.
std::vector<std::string> UnexpectedArguments(const CLI::App& parser);

}  // namespace Quill::Tool
