// SPDX-License-Identifier: MIT
// A question to another program of the same user.
#pragma once

#include <optional>
#include <string>

namespace quorel::platform {

// Sends a line to the program that listens at this socket and returns the line that it answers; nothing when none listens, or
// when the system has no such sockets. Waits for at most two seconds each way. Throws std::runtime_error when the path is too
// long or the program does not answer.
std::optional<std::string> askLocally(const std::string& socketPath, const std::string& line);

} // namespace quorel::platform
