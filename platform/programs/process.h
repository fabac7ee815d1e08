// SPDX-License-Identifier: MIT
// What a program asks of its process: its arguments, whether it was interrupted, who watches, and where its user's files are.
#pragma once

#include <string>
#include <vector>

namespace quorel::platform {

// The arguments behind the program's name, in UTF-8.
std::vector<std::string> argumentsOf(int argc, char** argv);

// From now on an interrupt is noted instead of ending the process; so is that nobody reads the output any more.
void watchInterrupts();

// Whether the user has asked the process to stop.
bool interrupted() noexcept;

// Ends the process as an interrupt would have at once, so that who started it sees why; or the exit code that says so.
int endInterrupted();

// Whether somebody watches standard error.
bool onTerminal() noexcept;

// The folder that holds this user's files of this system, empty if there is none; it may have to be made.
std::string userFolder();

} // namespace quorel::platform
