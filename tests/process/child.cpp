// SPDX-License-Identifier: MIT
// What is the same on every system: the lines, and the end.
#include "tests/process/child.h"

#include "tests/process/process.h"

#include <array>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace quorel {

Child::Child(const std::string& program, const std::vector<std::string>& arguments, std::chrono::milliseconds patience)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!process) {
        try {
            process = std::make_unique<Process>(program, arguments);
        } catch (const std::system_error& error) {
            if (std::chrono::steady_clock::now() >= end)
                throw std::runtime_error("Can't start " + program + ": " + error.what() + ", error " +
                                         std::to_string(error.code().value()));
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }
}

Child::Child(Child&&) noexcept = default;

Child::~Child()
{
    if (process)
        kill();
}

std::optional<std::string> Child::line()
{
    for (;;) {
        if (const auto end = unread.find('\n'); end != std::string::npos) {
            auto result = unread.substr(0, end);
            unread.erase(0, end + 1);
            if (result.ends_with('\r'))
                result.pop_back();
            return result;
        }
        std::array<char, 4096> part{};
        const auto count = process->read(part.data(), part.size());
        if (count == 0)
            return std::nullopt;
        unread.append(part.data(), count);
    }
}

void Child::kill()
{
    if (exitCode(std::chrono::milliseconds(0)))
        return;
    process->kill();
    static_cast<void>(exitCode(std::chrono::minutes(1)));
}

std::optional<int> Child::exitCode(std::chrono::milliseconds patience)
{
    if (!process->ended)
        process->ended = process->wait(patience);
    return process->ended;
}

} // namespace quorel
