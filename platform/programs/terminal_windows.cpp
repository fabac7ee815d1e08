// SPDX-License-Identifier: MIT
#include "platform/programs/terminal.h"

#include <iostream>
#include <windows.h>

namespace quorel::platform {

TerminalMoves terminalMoves()
{
    const HANDLE terminal = GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    if (GetConsoleMode(terminal, &mode) == 0 || SetConsoleMode(terminal, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) == 0)
        return {};
    return {"\x1b[A", "\x1b[K"};
}

unsigned terminalColumns() noexcept
{
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info) == 0)
        return 0;
    return static_cast<unsigned>(info.srWindow.Right - info.srWindow.Left + 1);
}

bool canAsk() noexcept
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) != 0 &&
           GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

std::string answer()
{
    std::string line;
    std::getline(std::cin, line); // an interrupt ends it
    return line;
}

} // namespace quorel::platform
