// SPDX-License-Identifier: MIT
#include "platform/programs/limited_work.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <fstream>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace quorel::platform {

namespace {

// The first byte of what the child sends.
constexpr char given = 'g';
constexpr char thrown = 't';

class Child {
public:
    explicit Child(pid_t id) : id(id) {}
    ~Child()
    {
        if (id > 0) {
            kill(id, SIGKILL);
            end();
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Waits for its end and returns its status.
    int end()
    {
        int status = 0;
        while (waitpid(id, &status, 0) < 0 && errno == EINTR) {
        }
        id = -1;
        return status;
    }

private:
    pid_t id;
};

struct Descriptor {
    explicit Descriptor(int fd) : fd(fd) {}
    ~Descriptor() { close(fd); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int fd;
};

// The system tells of a limit of time when it is met, and kills a second later who does not hear.
void limit(int resource, rlim_t amount)
{
    rlimit now{};
    getrlimit(static_cast<__rlimit_resource_t>(resource), &now);
    const rlim_t last = resource == RLIMIT_CPU ? amount + 1 : amount;
    const rlimit wanted{std::min(amount, now.rlim_max), std::min(last, now.rlim_max)};
    setrlimit(static_cast<__rlimit_resource_t>(resource), &wanted);
}

// Bytes of addresses that this process has now.
std::uint64_t addressSpace()
{
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

void send(int pipe, char kind, std::string_view text)
{
    std::string all(1, kind);
    all += text;
    for (std::size_t done = 0; done < all.size();) {
        const ssize_t count = write(pipe, all.data() + done, all.size() - done);
        if (count < 0 && errno != EINTR)
            return;
        done += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
}

// The kind of processor by whose numbers calls are told; 0 where it is another than these.
#if defined(__x86_64__)
constexpr std::uint32_t processorKind = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t processorKind = AUDIT_ARCH_AARCH64;
#else
constexpr std::uint32_t processorKind = 0;
#endif

// What the work may ask of the system: to read files, for memory, for the time, to answer, to signal itself and to end. By a pipe
// a sanitizer sees whether memory is there.
// clang-format off
constexpr auto allowedCalls = std::to_array<std::uint32_t>({
    SYS_brk, SYS_clock_gettime, SYS_close, SYS_exit, SYS_exit_group, SYS_fcntl, SYS_fstat, SYS_futex, SYS_getdents64, SYS_getpid,
    SYS_getrandom, SYS_gettid, SYS_gettimeofday, SYS_lseek, SYS_madvise, SYS_mprotect, SYS_mremap, SYS_munmap, SYS_newfstatat,
    SYS_pipe2, SYS_pread64, SYS_read, SYS_readlinkat, SYS_readv, SYS_rt_sigaction, SYS_rt_sigprocmask, SYS_rt_sigreturn,
    SYS_sched_getaffinity, SYS_sched_yield, SYS_sigaltstack, SYS_statfs, SYS_statx, SYS_sysinfo, SYS_uname, SYS_write,
#ifdef SYS_open // by their older names
    SYS_access, SYS_lstat, SYS_pipe, SYS_readlink, SYS_stat,
#endif
});
// clang-format on

// Whatever else the process asks from here on, another program, a connection, a change to a file, another process, is not
// permitted; a call by another processor's numbers ends it. A system without such filters does without: the limits hold there too.
void forbidCalls()
{
    if (processorKind == 0)
        return;
    const auto load = [](std::size_t offset) -> sock_filter {
        return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset));
    };
    const auto argument = [&](std::size_t which) { return load(offsetof(seccomp_data, args) + 8 * which); }; // its lower half
    const auto unless = [](std::uint32_t value, std::uint8_t skipped) -> sock_filter {
        return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, skipped);
    };
    constexpr sock_filter allow = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    constexpr sock_filter refuse = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM);

    std::vector<sock_filter> program = {load(offsetof(seccomp_data, arch)),
                                        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, processorKind, 1, 0),
                                        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS), load(offsetof(seccomp_data, nr))};
    const auto add = [&](std::initializer_list<sock_filter> steps) { program.insert(program.end(), steps); };
    for (const std::uint32_t call : allowedCalls)
        add({unless(call, 1), allow});
    // A file is opened for reading alone.
    constexpr std::uint32_t changes = O_ACCMODE | O_CREAT | O_TRUNC;
    add({unless(SYS_openat, 4), argument(2), BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, changes, 0, 1), refuse, allow});
#ifdef SYS_open
    add({unless(SYS_open, 4), argument(1), BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, changes, 0, 1), refuse, allow});
#endif
    // What is written into memory stays out of files.
    add({unless(SYS_mmap, 4), argument(3), BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, MAP_SHARED, 0, 1), refuse, allow});
    // Signals go to itself.
    add({unless(SYS_tgkill, 4), argument(0), unless(static_cast<std::uint32_t>(getpid()), 1), allow, refuse});
    add({refuse});

    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter);
}

// What a library says of its own accord goes nowhere, a crash leaves no picture of the memory behind, no file can be written,
// nothing that the caller has open is there, and nothing outlives the parent.
void confine(const WorkLimits& limits, int pipe)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nowhere, stream);
    const auto answer = static_cast<unsigned>(pipe);
    if (answer > STDERR_FILENO + 1)
        close_range(STDERR_FILENO + 1, answer - 1, 0);
    close_range(answer + 1, ~0U, 0);
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_FSIZE, 0);
    limit(RLIMIT_CPU, limits.processorSeconds);
    limit(RLIMIT_AS, addressSpace() + limits.memoryBytes);
    forbidCalls();
}

[[noreturn]] void doInChild(const std::function<std::string()>& work, const WorkLimits& limits, int pipe)
{
    confine(limits, pipe);
    try {
        send(pipe, given, work());
    } catch (const std::bad_alloc&) {
        send(pipe, thrown, "there is too little memory");
    } catch (const std::exception& error) {
        send(pipe, thrown, error.what());
    }
    _exit(0);
}

} // namespace

std::string doLimited(const std::function<std::string()>& work, const WorkLimits& limits, const std::function<void()>& wait)
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::runtime_error(std::strerror(errno));
    const Descriptor reading(ends[0]);
    const pid_t id = fork();
    if (id == 0)
        doInChild(work, limits, ends[1]);
    close(ends[1]);
    if (id < 0)
        throw std::runtime_error(std::strerror(errno));

    Child child(id);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(limits.seconds);
    std::string answer;
    for (std::array<char, 65536> part{};;) {
        wait();
        if (std::chrono::steady_clock::now() >= end)
            throw std::runtime_error("it takes more than " + std::to_string(limits.seconds) + " s");
        pollfd waited{reading.fd, POLLIN, 0};
        constexpr int patience = 50; // ms
        if (poll(&waited, 1, patience) <= 0)
            continue;
        const ssize_t got = read(reading.fd, part.data(), part.size());
        if (got == 0)
            break;
        answer.append(part.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        if (answer.size() > limits.resultBytes + 1)
            throw std::runtime_error("it gives more than " + std::to_string(limits.resultBytes) + " bytes");
    }
    const int status = child.end();
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGXCPU)
        throw std::runtime_error("it takes more than " + std::to_string(limits.processorSeconds) + " s of the processor's time");
    if (WIFSIGNALED(status))
        throw std::runtime_error(std::string("it ends what reads it: ") + strsignal(WTERMSIG(status)));
    if (WEXITSTATUS(status) != 0 || answer.empty())
        throw std::runtime_error("it ends what reads it");
    if (answer.front() == thrown)
        throw std::runtime_error(answer.substr(1));
    return answer.substr(1);
}

} // namespace quorel::platform
