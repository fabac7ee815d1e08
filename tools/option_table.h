// SPDX-License-Identifier: MIT
// The options of a tool as a table, from which its manual page and its completions are made.
#pragma once

#include "tools/command_line.h"

#include <iosfwd>

namespace quorel {

// One line for the program, each command, each option and each footer, its fields separated by tabs, line ends within a field
// written as \n:
//   program NAME DESCRIPTION
//   command PATH MEANING
//   option PATH NAMES TYPE DEFAULT MEANING         an option that takes no value has no type
//   positional PATH NAME REQUIRED MEANING          REQUIRED is 1 or 0; a NAME with ... may be repeated
//   footer PATH TEXT
// PATH is the words of the command, empty for the program itself.
void writeOptionTable(const CommandLine& tool, std::ostream& out);

} // namespace quorel
