// SPDX-License-Identifier: MIT
#include "platform/programs/terminal.h"

#include "platform/programs/process.h"

#include <cstdint>
#include <iostream>
#include <poll.h>
#include <sys/ioctl.h>
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

unsigned terminalColumns() noexcept
{
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

bool canAsk() noexcept
{
    return isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1;
}

// A read would go on behind an interrupt, so the line is awaited first.
std::string answer()
{
    constexpr int period = 100; // ms
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (!interrupted() && poll(&input, 1, period) <= 0) {
    }
    std::string line;
    if (!interrupted())
        std::getline(std::cin, line);
    return line;
}

} // namespace quorel::platform
