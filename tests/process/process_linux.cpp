// SPDX-License-Identifier: MIT
#include "tests/process/process.h"

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace quorel {

std::string ownProgram()
{
    std::array<char, PATH_MAX> path{};
    const auto length = readlink("/proc/self/exe", path.data(), path.size());
    if (length <= 0)
        throw std::runtime_error("This program's own file is not known");
    return {path.data(), static_cast<std::size_t>(length)};
}

Child::Process::Process(const std::string& program, const std::vector<std::string>& arguments)
{
    std::vector<char*> words{const_cast<char*>(program.c_str())};
    for (const auto& argument : arguments)
        words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);

    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::system_error(errno, std::system_category(), "pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    pid_t started = 0;
    const int result = posix_spawn(&started, program.c_str(), &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    output = ends[0];
    if (result != 0) {
        close(ends[0]);
        throw std::system_error(result, std::system_category());
    }
    id = started;
    watch = syscall(SYS_pidfd_open, started, 0);
}

Child::Process::~Process()
{
    close(static_cast<int>(output));
    close(static_cast<int>(watch));
}

std::size_t Child::Process::read(char* to, std::size_t most)
{
    for (;;) {
        const auto count = ::read(static_cast<int>(output), to, most);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EINTR)
            return 0;
    }
}

void Child::Process::kill()
{
    ::kill(static_cast<pid_t>(id), SIGKILL);
}

std::optional<int> Child::Process::wait(std::chrono::milliseconds patience)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    pollfd watched{static_cast<int>(watch), POLLIN, 0};
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
        const int ready = poll(&watched, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready == 0)
            return std::nullopt;
        int status = 0;
        if (ready > 0 && waitpid(static_cast<pid_t>(id), &status, 0) == static_cast<pid_t>(id))
            return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        if (errno != EINTR)
            throw std::runtime_error("A process can't be waited for");
    }
}

} // namespace quorel
