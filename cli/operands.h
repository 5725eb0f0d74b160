// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Quill::Tool {

// Protects operands, such as file names, from the option parser. The parser takes "[a,b]" as a list
// and "++" as the end of a subcommand, and rejects a name with a leading dash even after "--". So
// SpellOperands puts a mark before each operand, and the options that receive operands remove it.

// Makes the operands of a subcommand's parser remove the mark. Call it after declaring the options.
void TakeOperandsLiterally(CLI::App& parser);

// Marks the operands among the subcommand's arguments, `arguments[first]` and later, and removes
// the
// "--" before them.
void SpellOperands(const CLI::App& parser, size_t first, std::vector<std::string>& arguments);

// Returns the extra arguments, spelled as the user gave them.
[[nodiscard]] std::vector<std::string> UnexpectedArguments(const CLI::App& parser);

}  // namespace Quill::Tool
