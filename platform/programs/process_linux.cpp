// SPDX-License-Identifier: MIT
#include "platform/programs/process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace quorel::platform {

namespace {

volatile std::sig_atomic_t received = 0;

// An absolute path, or empty.
std::string pathFrom(const char* variable)
{
    const char* value = std::getenv(variable);
    return value != nullptr && *value == '/' ? value : "";
}

} // namespace

std::vector<std::string> argumentsOf(int argc, char** argv)
{
    return {argv + 1, argv + argc};
}

void watchInterrupts()
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        struct sigaction old {};
        sigaction(signal, nullptr, &old);
        if (old.sa_handler == SIG_IGN) // started to run on regardless, as by nohup
            continue;
        struct sigaction action {};
        action.sa_handler = [](int which) { received = which; };
        action.sa_flags = SA_RESTART;
        sigaction(signal, &action, nullptr);
    }
    std::signal(SIGXFSZ, SIG_IGN); // a write beyond the limit fails like any other
}

bool interrupted() noexcept
{
    return received != 0;
}

int endInterrupted()
{
    std::signal(received, SIG_DFL);
    std::raise(received);
    return 128 + received;
}

bool onTerminal() noexcept
{
    return isatty(STDERR_FILENO) == 1;
}

std::string userFolder()
{
    std::string folder = pathFrom("XDG_CONFIG_HOME");
    if (folder.empty()) {
        folder = pathFrom("HOME");
        if (const passwd* account = folder.empty() ? getpwuid(geteuid()) : nullptr)
            folder = account->pw_dir;
        if (!folder.empty())
            folder += "/.config";
    }
    return folder.empty() ? folder : folder + "/quorel";
}

} // namespace quorel::platform
