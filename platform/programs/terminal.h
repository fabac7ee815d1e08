// SPDX-License-Identifier: MIT
// What a program writes to standard error's terminal to redraw in place.
#pragma once

#include <string>

namespace quorel::platform {

// Moves the cursor one line up; clears the rest of a line. Both empty without a terminal that can.
struct TerminalMoves {
    std::string up;
    std::string clear;
};
TerminalMoves terminalMoves();

} // namespace quorel::platform
