// SPDX-License-Identifier: MIT
#include "tests/real_time/system_calls.h"

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <iterator>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quorel {

namespace {

constexpr int mostCounted = 100;
constexpr int failed = 255;

volatile std::sig_atomic_t trapped = 0;

// From here on the process can leave, return from a signal handler and nothing else: all other calls raise SIGSYS.
bool forbidSystemCalls()
{
    struct sigaction action {};
    action.sa_handler = [](int) { trapped = trapped + 1; };
    if (sigaction(SIGSYS, &action, nullptr) != 0)
        return false;

    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_rt_sigreturn, 2, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{static_cast<unsigned short>(std::size(program)), program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

} // namespace

int systemCallsOf(const std::function<void()>& prepare, const std::function<void()>& work)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0)
        return -1;
    if (child == 0) {
        try {
            prepare();
            if (!forbidSystemCalls())
                _exit(failed);
            work();
        } catch (const std::exception&) {
            _exit(failed);
        }
        _exit(trapped < mostCounted ? trapped : mostCounted);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) == failed)
        return -1;
    return WEXITSTATUS(status);
}

} // namespace quorel
