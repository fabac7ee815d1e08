// SPDX-License-Identifier: MIT
#pragma once

#include <csignal>
#include <unistd.h>
#include <vector>

namespace quorel {

// Starts a program behind what `prepare()` does in the child, and gives its number: for tests that send it signals.
template <class Prepare>
pid_t started(const char* program, const std::vector<const char*>& arguments, Prepare prepare)
{
    std::vector<char*> argv{const_cast<char*>(program)};
    for (const char* argument : arguments)
        argv.push_back(const_cast<char*>(argument));
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        std::signal(SIGINT, SIG_DFL); // a shell's background ignores it
        prepare();
        execv(program, argv.data());
        _exit(127);
    }
    return child;
}

} // namespace quorel
