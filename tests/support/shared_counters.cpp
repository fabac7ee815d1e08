// SPDX-License-Identifier: MIT
// What a child process counts in the preset `coverage` reaches its parent: the counters are memory that both share. A child that
// reads a file which nobody vouches for may write no file, so it could not leave its counts there.
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

// Where shared_counters.ld has put the counters of this program or library.
extern "C" {
void __gcov_dump();
void __gcov_reset();
extern __attribute__((visibility("hidden"))) std::byte shared_counters_begin[];
extern __attribute__((visibility("hidden"))) std::byte shared_counters_end[];
}

namespace {

pid_t owner = 0; // the process that leaves the counts; its children share them

// Runs before anything has counted.
__attribute__((constructor(101))) void shareCounters()
{
    owner = getpid();
    if (const auto bytes = static_cast<std::size_t>(shared_counters_end - shared_counters_begin); bytes > 0)
        mmap(shared_counters_begin, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
}

// Runs before the counts are written: where a test keeps this process's files short they go nowhere, and nothing is said of it, or
// they would leave halves of what others have counted.
__attribute__((destructor(101))) void leaveOthersCounts()
{
    rlimit room{};
    if (getrlimit(RLIMIT_FSIZE, &room) == 0 && room.rlim_cur != RLIM_INFINITY) {
        setenv("GCOV_PREFIX", "/dev/null", 1);
        dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
    }
}

} // namespace

// In place of the system's: a program that ends itself by a signal, as one that was interrupted does, leaves its counts too.
extern "C" int raise(int signal) noexcept
{
    if (getpid() == owner) {
        leaveOthersCounts();
        __gcov_dump();
        __gcov_reset(); // what goes on counts anew, and is added at the end
    }
    return pthread_kill(pthread_self(), signal);
}
