// SPDX-License-Identifier: MIT
#include "tests/support/failing_calls.h"

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

constinit thread_local long callsLeft = 0; // up to the one that fails; 0: none does
constinit thread_local int callsError = 0;
constinit thread_local bool failed = false;

bool callFails()
{
    if (callsLeft == 0 || --callsLeft != 0)
        return false;
    failed = true;
    errno = callsError;
    return true;
}

} // namespace

namespace quorel {

void failCall(long first, int error) noexcept
{
    failed = false;
    callsError = error;
    callsLeft = first;
}

bool callFailed() noexcept
{
    return failed;
}

} // namespace quorel

// The linker sends every call of these names in the program to __wrap_ and keeps the originals under __real_.
#define QUOREL_CALL(type, name, parameters, arguments, failure) \
    type __real_##name parameters;                              \
    type __wrap_##name parameters                               \
    {                                                           \
        return callFails() ? failure : __real_##name arguments; \
    }

extern "C" {
QUOREL_CALL(int, mkdirat, (int folder, const char* name, mode_t mode), (folder, name, mode), -1)
QUOREL_CALL(int, mkfifoat, (int folder, const char* name, mode_t mode), (folder, name, mode), -1)
QUOREL_CALL(int, renameat, (int folder, const char* from, int other, const char* to), (folder, from, other, to), -1)
QUOREL_CALL(int, unlinkat, (int folder, const char* name, int how), (folder, name, how), -1)
QUOREL_CALL(int, rename, (const char* from, const char* to), (from, to), -1)
QUOREL_CALL(int, mkostemp, (char* path, int how), (path, how), -1)
QUOREL_CALL(int, fchmod, (int file, mode_t mode), (file, mode), -1)
QUOREL_CALL(int, fsync, (int file), (file), -1)
QUOREL_CALL(ssize_t, read, (int file, void* data, std::size_t bytes), (file, data, bytes), -1)
QUOREL_CALL(ssize_t, pread, (int file, void* data, std::size_t bytes, off_t from), (file, data, bytes, from), -1)
QUOREL_CALL(ssize_t, write, (int file, const void* data, std::size_t bytes), (file, data, bytes), -1)
QUOREL_CALL(int, flock, (int file, int how), (file, how), -1)
QUOREL_CALL(DIR*, fdopendir, (int file), (file), nullptr)
QUOREL_CALL(int, shm_open, (const char* name, int how, mode_t mode), (name, how, mode), -1)
QUOREL_CALL(int, posix_fallocate, (int file, off_t from, off_t bytes), (file, from, bytes), errno)
QUOREL_CALL(void*, mmap, (void* place, std::size_t bytes, int rights, int how, int file, off_t from),
            (place, bytes, rights, how, file, from), MAP_FAILED)
QUOREL_CALL(ssize_t, getrandom, (void* bytes, std::size_t count, unsigned how), (bytes, count, how), -1)
QUOREL_CALL(int, socket, (int family, int kind, int protocol), (family, kind, protocol), -1)
QUOREL_CALL(int, connect, (int file, const sockaddr* address, socklen_t bytes), (file, address, bytes), -1)
QUOREL_CALL(ssize_t, send, (int file, const void* data, std::size_t bytes, int how), (file, data, bytes, how), -1)
QUOREL_CALL(ssize_t, recv, (int file, void* data, std::size_t bytes, int how), (file, data, bytes, how), -1)
QUOREL_CALL(int, pipe2, (int* ends, int how), (ends, how), -1)
QUOREL_CALL(pid_t, fork, (), (), -1)
QUOREL_CALL(int, eventfd, (unsigned first, int how), (first, how), -1)
QUOREL_CALL(int, eventfd_write, (int file, eventfd_t count), (file, count), -1)
QUOREL_CALL(int, poll, (pollfd * files, nfds_t count, int milliseconds), (files, count, milliseconds), -1)
QUOREL_CALL(int, pthread_create, (pthread_t * thread, const pthread_attr_t* how, void* (*run)(void*), void* argument),
            (thread, how, run, argument), errno)

int __real_open(const char* name, int how, ...);
int __wrap_open(const char* name, int how, ...)
{
    va_list rest;
    va_start(rest, how);
    const mode_t mode = (how & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return callFails() ? -1 : __real_open(name, how, mode);
}

int __real_openat(int folder, const char* name, int how, ...);
int __wrap_openat(int folder, const char* name, int how, ...)
{
    va_list rest;
    va_start(rest, how);
    const mode_t mode = (how & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return callFails() ? -1 : __real_openat(folder, name, how, mode);
}

int __real_fcntl(int file, int what, ...);
int __wrap_fcntl(int file, int what, ...)
{
    va_list rest;
    va_start(rest, what);
    const long argument = va_arg(rest, long);
    va_end(rest);
    return callFails() ? -1 : __real_fcntl(file, what, argument);
}
}
