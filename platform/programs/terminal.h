// SPDX-License-Identifier: MIT
// What a program knows of standard error's terminal: how to redraw in place, how wide it is, and what its user answers.
#pragma once

#include <string>

namespace quorel::platform {

// Moves the cursor one line up; clears the rest of a line. Both empty without a terminal that can.
struct TerminalMoves {
    std::string up;
    std::string clear;
};
TerminalMoves terminalMoves();

// Characters of a line as the terminal is now; 0 where it does not say.
unsigned terminalColumns() noexcept;

// Whether somebody watches standard error who can answer at standard input.
bool canAsk() noexcept;

// The line that the user types; empty when the input ends or the user interrupts.
std::string answer();

} // namespace quorel::platform
