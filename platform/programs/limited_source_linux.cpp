// SPDX-License-Identifier: MIT
#include "platform/programs/limited_source.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <exception>
#include <fcntl.h>
#include <fstream>
#include <limits>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <new>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace quorel::platform {

// What the child sends: each of these, and then as many bytes of a part of what the work gives, or of the text that it throws.
struct LimitedSource::Piece {
    enum Kind : std::uint32_t { given, thrown, end };

    Kind kind;
    std::uint32_t bytes;
};

namespace {

constexpr std::size_t longestText = 4096; // bytes of what the work throws

void limit(int resource, rlim_t amount)
{
    rlimit now{};
    getrlimit(static_cast<__rlimit_resource_t>(resource), &now);
    const rlimit wanted{std::min(amount, now.rlim_max), std::min(amount, now.rlim_max)};
    setrlimit(static_cast<__rlimit_resource_t>(resource), &wanted);
}

// Bytes of addresses that this process has now.
std::uint64_t addressSpace()
{
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

void send(int pipe, const void* bytes, std::size_t count)
{
    for (std::size_t done = 0; done < count;) {
        const ssize_t part = write(pipe, static_cast<const char*>(bytes) + done, count - done);
        if (part < 0 && errno != EINTR)
            _exit(0); // nobody wants it any more
        done += static_cast<std::size_t>(std::max<ssize_t>(part, 0));
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
// of what the caller has open two descriptors are there, and nothing outlives the parent.
void confine(std::uint64_t addresses, int pipe, int kept)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (stream != pipe && stream != kept)
            dup2(nowhere, stream);
    unsigned first = STDERR_FILENO + 1; // of those that are closed
    for (const int fd : {std::min(pipe, kept), std::max(pipe, kept)}) {
        if (fd < static_cast<int>(first))
            continue;
        if (static_cast<unsigned>(fd) > first)
            close_range(first, static_cast<unsigned>(fd) - 1, 0);
        first = static_cast<unsigned>(fd) + 1;
    }
    close_range(first, ~0U, 0);
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_FSIZE, 0);
    limit(RLIMIT_AS, addresses);
    forbidCalls();
}

double processorSeconds(pid_t process)
{
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0)
        return 0; // it has ended
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// How long the child has been waited for.
class Patience {
public:
    Patience(pid_t child, const WorkLimits& limits) : child(child), limits(limits) {}

    // Throws once that is too long.
    void check() const
    {
        if (std::chrono::steady_clock::now() - start >= std::chrono::seconds(limits.seconds))
            throw std::runtime_error("it takes more than " + std::to_string(limits.seconds) + " s");
        if (processorSeconds(child) - work >= limits.processorSeconds)
            throw std::runtime_error("it takes more than " + std::to_string(limits.processorSeconds) +
                                     " s of the processor's time");
    }

private:
    pid_t child;
    const WorkLimits& limits;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    double work = processorSeconds(child); // it had done by then
};

} // namespace

LimitedSource::LimitedSource(const std::function<void(const Give&)>& work, const WorkLimits& limits, std::function<void()> wait,
                             int kept)
    : limits(limits), wait(std::move(wait))
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::runtime_error(std::strerror(errno));
    const std::uint64_t addresses = addressSpace() + limits.memoryBytes;
    child = fork();
    if (child == 0) {
        const int answer = ends[1];
        const auto sendPiece = [answer](Piece::Kind kind, const void* bytes, std::size_t count) {
            const Piece piece{kind, static_cast<std::uint32_t>(count)};
            send(answer, &piece, sizeof piece);
            send(answer, bytes, count);
        };
        const auto sendText = [&](std::string_view text) {
            sendPiece(Piece::thrown, text.data(), std::min(text.size(), longestText));
        };
        try {
            confine(addresses, answer, kept);
            work([&](const void* bytes, std::size_t count) {
                constexpr std::size_t most = std::numeric_limits<std::uint32_t>::max();
                for (const auto* next = static_cast<const char*>(bytes); count > 0;) {
                    const std::size_t part = std::min(count, most);
                    sendPiece(Piece::given, next, part);
                    next += part;
                    count -= part;
                }
            });
            sendPiece(Piece::end, nullptr, 0);
        } catch (const std::bad_alloc&) {
            sendText("there is too little memory");
        } catch (const std::exception& error) {
            sendText(error.what());
        }
        _exit(0);
    }
    const int why = errno;
    close(ends[1]);
    pipe = ends[0];
    fcntl(pipe, F_SETFL, O_NONBLOCK); // it is waited for by poll
    if (child < 0) {
        close(pipe);
        throw std::runtime_error(std::strerror(why));
    }
}

LimitedSource::~LimitedSource()
{
    endChild();
    close(pipe);
}

std::size_t LimitedSource::read(void* to, std::size_t bytes)
{
    std::size_t done = 0;
    while (done < bytes && !ended) {
        if (left == 0) {
            nextPiece();
            continue;
        }
        const std::size_t part = std::min(left, bytes - done);
        if (!receive(static_cast<char*>(to) + done, part))
            tellCrash();
        left -= part;
        done += part;
    }
    return done;
}

void LimitedSource::nextPiece()
{
    Piece piece{};
    if (!receive(&piece, sizeof piece))
        tellCrash();
    if (piece.kind == Piece::end) {
        ended = true;
    } else if (piece.kind == Piece::thrown) {
        std::string text(std::min<std::size_t>(piece.bytes, longestText), '\0');
        if (!receive(text.data(), text.size()))
            tellCrash();
        throw std::runtime_error(text);
    } else {
        left = piece.bytes;
        if (left > limits.resultBytes - all)
            throw std::runtime_error("it gives more than " + std::to_string(limits.resultBytes) + " bytes");
        all += left;
    }
}

// False where the child has closed its end.
bool LimitedSource::receive(void* to, std::size_t bytes)
{
    std::optional<Patience> patience;
    for (std::size_t done = 0; done < bytes;) {
        const ssize_t got = ::read(pipe, static_cast<char*>(to) + done, bytes - done);
        if (got == 0)
            return false;
        if (got > 0) {
            done += static_cast<std::size_t>(got);
            patience.reset();
            continue;
        }
        if (!patience)
            patience.emplace(child, limits);
        wait();
        pollfd waited{pipe, POLLIN, 0};
        constexpr int turn = 50; // ms
        if (poll(&waited, 1, turn) <= 0)
            patience->check();
    }
    return true;
}

// Its status. A child that is ending already keeps its own.
int LimitedSource::endChild() noexcept
{
    int status = 0;
    if (child > 0) {
        kill(child, SIGKILL);
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
    }
    child = -1;
    return status;
}

void LimitedSource::tellCrash()
{
    if (const int status = endChild(); WIFSIGNALED(status))
        throw std::runtime_error(std::string("it ends what reads it: ") + strsignal(WTERMSIG(status)));
    throw std::runtime_error("it ends what reads it");
}

std::string doInChild(const std::function<std::string()>& work, const WorkLimits& limits, const std::function<void()>& wait)
{
    const auto giveAll = [&work](const LimitedSource::Give& give) {
        const std::string result = work();
        give(result.data(), result.size());
    };
    LimitedSource source(giveAll, limits, wait, -1);
    std::string result;
    std::array<char, 65536> part{};
    for (std::size_t got = part.size(); got == part.size();) {
        got = source.read(part.data(), part.size());
        result.append(part.data(), got);
    }
    return result;
}

} // namespace quorel::platform
