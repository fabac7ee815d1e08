// Every object but a thread is an open file, and a handle is its number: mappings are objects of shm_open, a named event is a
// FIFO that is set while there is something to read in it, an unnamed event is an event counter.
//
// The kernel itself forgets the holds of a process that ends, however it ends: a FIFO loses its content with its last holder,
// and every holder of a mapping has a shared file lock on it, so a mapping without a lock is left over from processes that
// are gone and counts as none. Mappings have names that nobody can guess; the user's private directory tells them.
#include "platform/sharing.h"

#include "platform/user_directory_linux.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <pthread.h>
#include <string>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quorel::platform {

namespace {

Handle handleOf(int file)
{
    return std::bit_cast<Handle>(static_cast<std::intptr_t>(file) + 1); // no file is -1: null
}

// A thread's end is told by an event counter. That is its last act but one: only who joins it knows that none of its code
// runs any more, and the module that the code stands in can be unloaded.
struct Thread {
    File ended;
    pthread_t id{};
    bool joined = false;
};

// The thread of a handle, which is its address and so above all numbers of files; null for a file's.
Thread* threadOf(Handle handle)
{
    return std::bit_cast<std::intptr_t>(handle) > INT_MAX ? std::bit_cast<Thread*>(handle) : nullptr;
}

int fileOf(Handle handle)
{
    const auto* thread = threadOf(handle);
    return thread != nullptr ? thread->ended.get() : static_cast<int>(std::bit_cast<std::intptr_t>(handle) - 1);
}

// "Global\Name" names a file "Name" with a mark of its kind.
std::string fileName(const char* kind, const char* name)
{
    const std::string_view text(name);
    return std::string(kind) + std::string(text.substr(text.rfind('\\') + 1));
}

// The mapping that a record in the user's directory names, held by this process from now on; none when nobody held it.
File openHeld(const UserDirectory& directory, const std::string& record, std::string& name)
{
    constexpr std::string_view prefix = "/quorel-";
    constexpr std::size_t digits = 32;
    if (!readFile(directory.get(), record, name) || name.size() != prefix.size() + digits || !name.starts_with(prefix) ||
        name.find_first_not_of("0123456789abcdef", prefix.size()) != std::string::npos) {
        name.clear();
        return {};
    }
    File mapping(shm_open(name.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC, 0));
    if (!mapping || !isPrivate(mapping.get(), S_IFREG) || flock(mapping.get(), LOCK_EX | LOCK_NB) == 0 ||
        flock(mapping.get(), LOCK_SH | LOCK_NB) != 0)
        return {};
    return mapping;
}

std::string unguessableName()
{
    std::array<unsigned char, 16> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        return {};
    std::string name = "/quorel-";
    for (const auto byte : bytes) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", byte);
        name += digits.data();
    }
    return name;
}

File openFifo(int directory, const std::string& name, int how)
{
    File fifo(openat(directory, name.c_str(), how | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    return fifo && isPrivate(fifo.get(), S_IFIFO) ? std::move(fifo) : File();
}

struct ThreadStart {
    void (*run)(void*);
    void* argument;
    File ended;
};

void* runThread(void* start)
{
    const std::unique_ptr<ThreadStart> thread(static_cast<ThreadStart*>(start));
    thread->run(thread->argument);
    static_cast<void>(eventfd_write(thread->ended.get(), 1));
    return nullptr;
}

} // namespace

// Every object belongs to the user who makes it and nobody else reaches it: what a descriptor can grant beyond that, access
// for a service's account, has no meaning where the audio server runs as the user. A text is taken when it is an access list.
Descriptor* convertDescriptor(const char* text) noexcept
{
    static char granted;
    return std::strncmp(text, "D:(", 3) == 0 ? reinterpret_cast<Descriptor*>(&granted) : nullptr;
}

void freeDescriptor(Descriptor*) noexcept {}

Handle openMapping(const char* name) noexcept
try {
    const UserDirectory directory;
    if (!directory)
        return nullptr;
    std::string found;
    return handleOf(openHeld(directory, fileName("memory.", name), found).release());
} catch (const std::exception&) {
    return nullptr;
}

Handle createMapping(const char* name, std::uint32_t bytes, const Descriptor*) noexcept
try {
    const UserDirectory directory;
    if (!directory)
        return nullptr;
    const auto record = fileName("memory.", name);
    std::string leftOver;
    auto held = openHeld(directory, record, leftOver);
    if (held)
        return handleOf(held.release());
    if (!leftOver.empty())
        shm_unlink(leftOver.c_str());

    const auto fresh = unguessableName();
    if (fresh.empty())
        return nullptr;
    File mapping(shm_open(fresh.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!mapping)
        return nullptr;
    // The memory is taken now: what is only promised kills the process that touches it when the system has none left.
    if (posix_fallocate(mapping.get(), 0, bytes) != 0 || flock(mapping.get(), LOCK_SH | LOCK_NB) != 0 ||
        !replaceFile(directory.get(), record, fresh)) {
        shm_unlink(fresh.c_str());
        return nullptr;
    }
    return handleOf(mapping.release());
} catch (const std::exception&) {
    return nullptr;
}

void* mapView(Handle mapping, std::size_t bytes) noexcept
{
    struct stat found {};
    if (fstat(fileOf(mapping), &found) != 0 || found.st_size < static_cast<off_t>(bytes))
        return nullptr;
    void* view = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, fileOf(mapping), 0);
    return view == MAP_FAILED ? nullptr : view;
}

void unmapView(void* view, std::size_t bytes) noexcept
{
    munmap(view, bytes);
}

Handle createEvent(const char* name, const Descriptor*) noexcept
try {
    if (name == nullptr)
        return handleOf(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    const UserDirectory directory;
    const auto file = fileName("event.", name);
    if (!directory || (mkfifoat(directory.get(), file.c_str(), 0600) != 0 && errno != EEXIST))
        return nullptr;
    return handleOf(openFifo(directory.get(), file, O_RDWR).release());
} catch (const std::exception&) {
    return nullptr;
}

Handle openEvent(const char* name) noexcept
try {
    const UserDirectory directory;
    const auto file = fileName("event.", name);
    // A FIFO that no process reads refuses to be opened for writing alone.
    if (!directory || !openFifo(directory.get(), file, O_WRONLY))
        return nullptr;
    return handleOf(openFifo(directory.get(), file, O_RDWR).release());
} catch (const std::exception&) {
    return nullptr;
}

bool setEvent(Handle event) noexcept
{
    constexpr std::uint64_t one = 1;
    for (;;) {
        if (write(fileOf(event), &one, sizeof one) == sizeof one || errno == EAGAIN) // full: set long since
            return true;
        if (errno != EINTR)
            return false;
    }
}

bool resetEvent(Handle event) noexcept
{
    std::array<std::uint64_t, 512> counts{};
    for (;;) {
        if (read(fileOf(event), counts.data(), sizeof counts) >= 0 || errno == EINTR)
            continue;
        return errno == EAGAIN;
    }
}

int waitForEither(Handle first, Handle second) noexcept
{
    std::array<pollfd, 2> waited{{{fileOf(first), POLLIN, 0}, {fileOf(second), POLLIN, 0}}};
    for (;;) {
        if (poll(waited.data(), waited.size(), -1) < 0) {
            if (errno == EINTR)
                continue;
            return -1;
        }
        for (std::size_t i = 0; i < waited.size(); ++i) {
            if (waited.at(i).revents != 0)
                return waited.at(i).revents == POLLIN ? static_cast<int>(i) : -1;
        }
    }
}

// The thread takes no signals: they are the program's own.
Handle startThread(void (*run)(void*), void* argument) noexcept
try {
    std::unique_ptr<Thread> thread(new Thread{File(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))});
    std::unique_ptr<ThreadStart> start(new ThreadStart{run, argument, File(fcntl(thread->ended.get(), F_DUPFD_CLOEXEC, 0))});
    if (!thread->ended || !start->ended)
        return nullptr;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    if (pthread_sigmask(SIG_SETMASK, &all, &before) != 0)
        return nullptr;
    const int result = pthread_create(&thread->id, nullptr, runThread, start.get());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (result != 0)
        return nullptr;
    static_cast<void>(start.release());
    return std::bit_cast<Handle>(thread.release());
} catch (const std::exception&) {
    return nullptr;
}

bool waitFor(Handle object, std::uint32_t milliseconds) noexcept
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto end = std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000 + milliseconds;
    pollfd waited{fileOf(object), POLLIN, 0};
    for (;;) {
        const auto left = end - (std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000);
        const int count = poll(&waited, 1, static_cast<int>(std::clamp<std::int64_t>(left, 0, 0x7FFFFFFF)));
        if (count >= 0) {
            const bool ended = count == 1 && waited.revents == POLLIN;
            if (auto* thread = threadOf(object); ended && thread != nullptr && !thread->joined)
                thread->joined = pthread_join(thread->id, nullptr) == 0;
            return ended;
        }
        if (errno != EINTR)
            return false;
        clock_gettime(CLOCK_MONOTONIC, &now);
    }
}

void closeHandle(Handle object) noexcept
{
    const std::unique_ptr<Thread> thread(threadOf(object));
    if (!thread)
        close(fileOf(object));
    else if (!thread->joined)
        pthread_detach(thread->id);
}

void keepModule() noexcept
{
    Dl_info module{};
    if (dladdr(reinterpret_cast<const void*>(&keepModule), &module) != 0)
        dlopen(module.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

} // namespace quorel::platform
