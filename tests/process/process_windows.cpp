// SPDX-License-Identifier: MIT
#include "tests/process/process.h"

#include "platform/text_windows.h"

#include <array>
#include <stdexcept>
#include <system_error>

namespace quorel {

namespace {

HANDLE handleOf(std::intptr_t number)
{
    return reinterpret_cast<HANDLE>(number);
}

} // namespace

std::string ownProgram()
{
    std::array<wchar_t, 32768> path{};
    const auto length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0 || length == path.size())
        throw std::runtime_error("This program's own file is not known");
    std::string result(static_cast<std::size_t>(length) * 3, '\0');
    result.resize(static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, path.data(), static_cast<int>(length), result.data(),
                                                               static_cast<int>(result.size()), nullptr, nullptr)));
    return result;
}

Child::Process::Process(const std::string& program, const std::vector<std::string>& arguments)
{
    auto commandLine = platform::wide('"' + program + '"');
    for (const auto& argument : arguments)
        commandLine += platform::wide(" \"" + argument + '"');

    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    HANDLE from = nullptr;
    HANDLE to = nullptr;
    if (CreatePipe(&from, &to, &inherited, 0) == 0)
        throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "pipe");
    SetHandleInformation(from, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    start.hStdOutput = to;
    start.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION made{};
    const auto started = CreateProcessW(platform::wide(program).c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                        nullptr, &start, &made);
    const auto error = static_cast<int>(GetLastError());
    CloseHandle(to);
    if (started == 0) {
        CloseHandle(from);
        throw std::system_error(error, std::system_category());
    }
    CloseHandle(made.hThread);
    id = reinterpret_cast<std::intptr_t>(made.hProcess);
    output = reinterpret_cast<std::intptr_t>(from);
}

Child::Process::~Process()
{
    CloseHandle(handleOf(output));
    CloseHandle(handleOf(id));
}

std::size_t Child::Process::read(char* to, std::size_t most)
{
    DWORD count = 0;
    return ReadFile(handleOf(output), to, static_cast<DWORD>(most), &count, nullptr) != 0 ? count : 0;
}

void Child::Process::kill()
{
    TerminateProcess(handleOf(id), static_cast<UINT>(killed));
}

std::optional<int> Child::Process::wait(std::chrono::milliseconds patience)
{
    if (WaitForSingleObject(handleOf(id), static_cast<DWORD>(patience.count())) != WAIT_OBJECT_0)
        return std::nullopt;
    DWORD code = 0;
    GetExitCodeProcess(handleOf(id), &code);
    return static_cast<int>(code);
}

} // namespace quorel
