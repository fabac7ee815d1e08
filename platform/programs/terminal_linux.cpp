// SPDX-License-Identifier: MIT
#include "platform/programs/terminal.h"

#include <cstdint>
#include <term.h>
#include <unistd.h>

namespace quorel::platform {

namespace {

// What the terminal's description says, empty if it says nothing.
std::string capability(const char* name)
{
    const char* text = tigetstr(name);
    return text == nullptr || reinterpret_cast<std::intptr_t>(text) == -1 ? std::string() : std::string(text);
}

} // namespace

TerminalMoves terminalMoves()
{
    int problem = 0;
    if (isatty(STDERR_FILENO) != 1 || setupterm(nullptr, STDERR_FILENO, &problem) != 0)
        return {};
    return {capability("cuu1"), capability("el")};
}

} // namespace quorel::platform
