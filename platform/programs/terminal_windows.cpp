// SPDX-License-Identifier: MIT
#include "platform/programs/terminal.h"

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

} // namespace quorel::platform
