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
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

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

// What a library says of its own accord goes nowhere, a crash leaves no picture of the memory behind, no file can be written,
// and nothing outlives the parent.
void confine(const WorkLimits& limits)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nowhere, stream);
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_FSIZE, 0);
    limit(RLIMIT_CPU, limits.processorSeconds);
    limit(RLIMIT_AS, addressSpace() + limits.memoryBytes);
}

[[noreturn]] void doInChild(const std::function<std::string()>& work, const WorkLimits& limits, int pipe)
{
    confine(limits);
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
