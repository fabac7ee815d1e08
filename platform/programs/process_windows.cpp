// SPDX-License-Identifier: MIT
#include "platform/programs/process.h"

#include "platform/programs/file_names.h"

#include <cstdlib>
#include <windows.h>

#include <shellapi.h>

namespace quorel::platform {

namespace {

volatile LONG received = 0;

// Runs on a thread of its own.
BOOL WINAPI noteInterrupt(DWORD event)
{
    received = 1;
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        Sleep(INFINITE); // the process would end with this call; so it ends when the tool has, or when the system's time is over
    return TRUE;
}

} // namespace

std::vector<std::string> argumentsOf(int, char**)
{
    int count = 0;
    wchar_t** all = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i)
        arguments.push_back(textOf(all[i]));
    LocalFree(all);
    return arguments;
}

void watchInterrupts()
{
    SetConsoleCtrlHandler(noteInterrupt, TRUE);
}

bool interrupted() noexcept
{
    return received != 0;
}

int endInterrupted()
{
    return static_cast<int>(STATUS_CONTROL_C_EXIT);
}

bool onTerminal() noexcept
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

std::string userFolder()
{
    const wchar_t* folder = _wgetenv(L"APPDATA");
    return folder != nullptr && *folder != L'\0' ? textOf(folder) + "\\QUOREL" : std::string();
}

} // namespace quorel::platform
