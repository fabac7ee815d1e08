// SPDX-License-Identifier: MIT
// Mappings are objects of shm_open under names that nobody can guess; records in the user's runtime directory tell them. An
// unnamed event is an event counter. A named event is a FIFO for each process, in the same directory: it is set for a process
// while there is something to read in that process's own one, and who sets the event writes into all of them. So no reset
// takes anything from another process, and none that is stopped, killed or slow is in another one's way.
//
// The kernel itself forgets the holds of a process that ends, however it ends: a FIFO that nobody holds has no reader, and
// every holder of a mapping has a shared file lock on it, so a mapping without a lock is left over from processes that are
// gone and counts as none. Whoever comes next takes both away.
#include "platform/sharing.h"

#include "platform/refusal.h"
#include "platform/user_directory_linux.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
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
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace quorel::platform {

// A thread's end is told by an event counter. That is its last act but one: only who joins it knows that none of its code
// runs any more, and the module that the code stands in can be unloaded.
struct Object {
    enum class Kind { mapping, event, thread };

    Kind kind;
    File file;             // the memory; what can be read while the event is set; the counter of the thread's end
    std::string name{};    // of the memory object; "event.<name>." of a named event, empty for another one
    File directory{};      // where a named event's FIFOs are
    void* view = nullptr;  // the mapping's latest
    std::size_t bytes = 0; // of the view
    bool left = false;     // a mapping that was left open, and its view with it
    pthread_t thread{};
    bool joined = false;
};

// Who has the turn, and the records of what is being filled: their names end in `unfinished` till then.
struct UserTurn::State {
    File lock;
    std::vector<std::string> records{};
};

namespace {

constexpr std::size_t digits = 32;
constexpr const char* memoryPrefix = "/quorel-";
constexpr const char* unfinished = ".filling";
constexpr int fifoBytes = 65536;

constinit thread_local UserTurn::State* turn = nullptr; // that this thread has

// What was left open, for the next who asks.
constinit std::atomic<Object*> leftEvent = nullptr;
constinit std::atomic<Object*> leftMapping = nullptr;

// What nobody asks for any more goes with the module that this stands in, at the latest with the process: the module that is
// loaded next knows nothing of it and leaves its own.
struct ClosedAtUnload {
    ~ClosedAtUnload()
    {
        closeHandle(leftEvent.exchange(nullptr));
        if (auto* mapping = leftMapping.exchange(nullptr); mapping != nullptr) {
            unmapView(mapping->view, mapping->bytes);
            closeHandle(mapping);
        }
    }
};
const ClosedAtUnload closedAtUnload;

int fileOf(Handle handle)
{
    return handle != nullptr ? handle->file.get() : -1;
}

// "Global\Name" names a file "Name" with a mark of its kind.
std::string fileName(const char* kind, const char* name)
{
    const std::string_view text(name);
    return std::string(kind) + std::string(text.substr(text.rfind('\\') + 1));
}

Handle refused(const std::string& path, int error)
{
    keepRefusal(path, error);
    return nullptr;
}

// ---- Mappings -------------------------------------------------------------------------------------------------------

// The name of a memory object that a record tells. 0, or the error: EINVAL when it tells none of ours.
int readName(const UserDirectory& directory, const std::string& record, std::string& name)
{
    const std::string_view prefix = memoryPrefix;
    if (const int error = readFile(directory.get(), record, prefix.size() + digits, name); error != 0)
        return error;
    const bool ours = name.size() == prefix.size() + digits && name.starts_with(prefix) &&
                      name.find_first_not_of("0123456789abcdef", prefix.size()) == std::string::npos;
    return ours ? 0 : EINVAL;
}

// The memory object, held by this process from now on. None and `gone` when nobody held it: then it is taken away; none alone when
// that is not to be known.
File hold(const std::string& name, bool& gone)
{
    File memory(shm_open(name.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC, 0));
    gone = memory ? !isPrivate(memory.get(), S_IFREG) : !isLack(errno);
    if (!memory || gone)
        return {};
    if (flock(memory.get(), LOCK_EX | LOCK_NB) == 0) {
        shm_unlink(name.c_str());
        gone = true;
        return {};
    }
    return flock(memory.get(), LOCK_SH | LOCK_NB) == 0 ? std::move(memory) : File();
}

// Takes away the memory that processes which are gone have left, and what tells of it.
void removeLeftOvers(const UserDirectory& directory)
{
    std::vector<std::string> files;
    static_cast<void>(listDirectory(directory.get(), files));
    for (const auto& file : files) {
        if (!file.starts_with("memory."))
            continue;
        std::string name;
        const int error = readName(directory, file, name);
        bool gone = error != 0 && !isLack(error);
        if (error == 0)
            static_cast<void>(hold(name, gone));
        if (gone)
            unlinkat(directory.get(), file.c_str(), 0);
    }
}

// The existing mapping. In a turn it may be the one that was left open in an earlier one, if others would find that one. None and
// `gone` when there is none; none alone when that is not to be known.
Handle openRecorded(const UserDirectory& directory, const std::string& record, bool& gone)
{
    std::string name;
    errno = readName(directory, record, name);
    gone = errno != 0 && !isLack(errno);
    if (errno != 0)
        return nullptr;
    if (auto* left = leftMapping.load(); turn != nullptr && left != nullptr && left->name == name) {
        leftMapping = nullptr;
        return left;
    }
    auto memory = hold(name, gone);
    return memory ? new Object{Object::Kind::mapping, std::move(memory), name} : nullptr;
}

// The record comes first: it tells of the memory whatever happens to this process.
Handle makeRecorded(const UserDirectory& directory, const std::string& record, std::uint32_t bytes)
{
    const auto fresh = unguessableDigits();
    if (fresh.empty())
        return nullptr;
    const auto name = memoryPrefix + fresh;
    if (std::string before; readName(directory, record, before) == 0)
        shm_unlink(before.c_str()); // of a turn that was never finished
    if (!replaceFile(directory.get(), record, name)) {
        const int error = errno;
        return refused(directory.pathOf(record), error);
    }
    File memory(shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    int error = memory ? 0 : errno;
    // The memory is taken now: what is only promised kills the process that touches it when the system has none left.
    if (error == 0)
        error = posix_fallocate(memory.get(), 0, bytes);
    if (error == 0 && flock(memory.get(), LOCK_SH | LOCK_NB) != 0)
        error = errno;
    if (error == 0)
        return new Object{Object::Kind::mapping, std::move(memory), name};
    shm_unlink(name.c_str());
    unlinkat(directory.get(), record.c_str(), 0);
    return refused("/dev/shm" + name, error);
}

// ---- Named events ---------------------------------------------------------------------------------------------------

// Another process may have the same number where processes are numbered anew.
std::string ownFifo(const std::string& prefix)
{
    struct stat space {};
    static_cast<void>(stat("/proc/self/ns/pid", &space));
    return prefix + std::to_string(getpid()) + '.' + std::to_string(space.st_ino);
}

File openFifo(int directory, const std::string& name, int how)
{
    File fifo(openat(directory, name.c_str(), how | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!fifo || isPrivate(fifo.get(), S_IFIFO))
        return fifo;
    errno = EACCES;
    return {};
}

bool isHeld(int directory, const std::string& name)
{
    return static_cast<bool>(openFifo(directory, name, O_WRONLY)); // refused where there is no reader
}

bool writeMark(int file)
{
    constexpr char mark = 1;
    for (;;) {
        if (write(file, &mark, sizeof mark) == sizeof mark || errno == EAGAIN) // full: set long since
            return true;
        if (errno != EINTR)
            return false;
    }
}

// Finds out whether a process holds the event, and takes away the FIFOs that nobody holds. False when that is not to be known.
bool findHolders(const UserDirectory& directory, const std::string& prefix, bool& there)
{
    there = false;
    std::vector<std::string> files;
    if (!listDirectory(directory.get(), files))
        return false;
    for (const auto& file : files) {
        if (!file.starts_with(prefix))
            continue;
        if (isHeld(directory.get(), file))
            there = true;
        else if (isLack(errno))
            return false;
        else
            unlinkat(directory.get(), file.c_str(), 0);
    }
    return true;
}

// This process's own end of the event, which is set when others were there before.
Handle openEnd(const UserDirectory& directory, const std::string& prefix, bool there)
{
    const auto fifo = ownFifo(prefix);
    const bool others = there && !isHeld(directory.get(), fifo);
    const bool made = mkfifoat(directory.get(), fifo.c_str(), 0600) == 0 || errno == EEXIST;
    auto file = made ? openFifo(directory.get(), fifo, O_RDWR) : File();
    File place(file ? openat(directory.get(), ".", O_PATH | O_DIRECTORY | O_CLOEXEC) : -1);
    if (!file || !place || (others && !writeMark(file.get()))) {
        const int error = errno;
        return refused(directory.pathOf(fifo), error);
    }
    return new Object{Object::Kind::event, std::move(file), prefix, std::move(place)};
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
    UserDirectory directory(Place::runtime, IfMissing::isNone);
    if (!directory || !directory.keepOthersOut())
        return nullptr;
    removeLeftOvers(directory);
    bool gone = false;
    return openRecorded(directory, fileName("memory.", name), gone);
} catch (const std::exception&) {
    return nullptr;
}

Handle createMapping(const char* name, std::uint32_t bytes, const Descriptor* access) noexcept
try {
    if (turn == nullptr) {
        UserTurn ofThis(patience);
        std::unique_ptr<Object> mapping(ofThis ? createMapping(name, bytes, access) : nullptr);
        return mapping && ofThis.finish() ? mapping.release() : nullptr;
    }
    UserDirectory directory(Place::runtime, IfMissing::isMade);
    if (!directory || !directory.keepOthersOut())
        return nullptr;
    removeLeftOvers(directory);
    const auto record = fileName("memory.", name);
    bool gone = false;
    if (auto* existing = openRecorded(directory, record, gone); existing != nullptr)
        return existing;
    if (!gone) {
        const int error = errno;
        return refused(directory.pathOf(record), error);
    }
    turn->records.push_back(record);
    const auto made = makeRecorded(directory, record + unfinished, bytes);
    if (made == nullptr)
        turn->records.pop_back();
    return made;
} catch (const std::exception&) {
    return nullptr;
}

void* mapView(Handle mapping, std::size_t bytes) noexcept
{
    struct stat found {};
    if (mapping != nullptr && mapping->left)
        return mapping->view;
    if (fstat(fileOf(mapping), &found) != 0 || found.st_size < static_cast<off_t>(bytes))
        return nullptr;
    void* view = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, fileOf(mapping), 0);
    if (view == MAP_FAILED)
        return nullptr;
    mapping->view = view;
    mapping->bytes = bytes;
    return view;
}

void unmapView(void* view, std::size_t bytes) noexcept
{
    munmap(view, bytes);
}

Handle createEvent(const char* name, const Descriptor*) noexcept
try {
    if (name == nullptr) {
        if (auto* left = leftEvent.exchange(nullptr); left != nullptr && resetEvent(left))
            return left;
        File counter(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
        return counter ? new Object{Object::Kind::event, std::move(counter)} : nullptr;
    }
    UserDirectory directory(Place::runtime, IfMissing::isMade);
    if (!directory || !directory.keepOthersOut())
        return nullptr;
    const auto prefix = fileName("event.", name) + '.';
    bool there = false;
    if (!findHolders(directory, prefix, there)) {
        const int error = errno;
        return refused(directory.pathOf(prefix), error);
    }
    return openEnd(directory, prefix, there);
} catch (const std::exception&) {
    return nullptr;
}

Handle openEvent(const char* name) noexcept
try {
    UserDirectory directory(Place::runtime, IfMissing::isNone);
    if (!directory || !directory.keepOthersOut())
        return nullptr;
    const auto prefix = fileName("event.", name) + '.';
    bool there = false;
    return findHolders(directory, prefix, there) && there ? openEnd(directory, prefix, true) : nullptr;
} catch (const std::exception&) {
    return nullptr;
}

bool setEvent(Handle event) noexcept
try {
    if (event == nullptr)
        return false;
    if (event->name.empty()) {
        const bool set = eventfd_write(event->file.get(), 1) == 0;
        return set || errno == EAGAIN;
    }
    std::vector<std::string> files;
    bool all = writeMark(event->file.get()) && listDirectory(event->directory.get(), files);
    for (const auto& file : files) {
        if (!file.starts_with(event->name))
            continue;
        const auto fifo = openFifo(event->directory.get(), file, O_RDWR); // no signal when its process goes meanwhile
        if (fifo)
            all = writeMark(fifo.get()) && all;
        else if (isLack(errno))
            all = false;
    }
    return all;
} catch (const std::exception&) {
    return false;
}

// At most what a FIFO holds: who writes on and on keeps the event set and nobody busy.
bool resetEvent(Handle event) noexcept
{
    std::array<char, 4096> marks{};
    for (int taken = 0; taken <= fifoBytes;) {
        const auto count = read(fileOf(event), marks.data(), marks.size());
        if (count < 0 && errno != EINTR)
            return errno == EAGAIN;
        taken += static_cast<int>(std::max<ssize_t>(count, 0));
    }
    return true;
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
    std::unique_ptr<Object> thread(new Object{Object::Kind::thread, File(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))});
    std::unique_ptr<ThreadStart> start(new ThreadStart{run, argument, File(fcntl(thread->file.get(), F_DUPFD_CLOEXEC, 0))});
    if (!thread->file || !start->ended)
        return nullptr;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    if (pthread_sigmask(SIG_SETMASK, &all, &before) != 0)
        return nullptr;
    const int result = pthread_create(&thread->thread, nullptr, runThread, start.get());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (result != 0)
        return nullptr;
    static_cast<void>(start.release());
    return thread.release();
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
            if (ended && object->kind == Object::Kind::thread && !object->joined)
                object->joined = pthread_join(object->thread, nullptr) == 0;
            return ended;
        }
        if (errno != EINTR)
            return false;
        clock_gettime(CLOCK_MONOTONIC, &now);
    }
}

void pause(std::uint32_t milliseconds) noexcept
{
    timespec left{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1'000'000};
    while (nanosleep(&left, &left) != 0 && errno == EINTR)
        continue;
}

void closeHandle(Handle object) noexcept
{
    const std::unique_ptr<Object> closed(object);
    if (closed && closed->kind == Object::Kind::thread && !closed->joined)
        pthread_detach(closed->thread);
}

void leaveOpen(Handle object) noexcept
{
    if (object->kind == Object::Kind::mapping)
        object->left = true;
    (object->kind == Object::Kind::event ? leftEvent : leftMapping) = object;
}

// ---- Turns ----------------------------------------------------------------------------------------------------------

UserTurn::UserTurn(std::uint32_t milliseconds) noexcept
{
    try {
        const UserDirectory directory(Place::runtime, IfMissing::isMade);
        if (!directory)
            return;
        const std::string name = "lock.QUORELTurn";
        auto lock = openLock(directory, name, milliseconds);
        if (lock)
            turn = state = new State{std::move(lock)};
    } catch (const std::exception&) {
        return; // There is no turn then.
    }
}

UserTurn::~UserTurn()
{
    if (state == nullptr)
        return;
    turn = nullptr;
    delete state;
}

bool UserTurn::finish() noexcept
try {
    const UserDirectory directory(Place::runtime, IfMissing::isNone);
    for (; !state->records.empty(); state->records.pop_back()) { // what was made first is found last
        const auto& record = state->records.back();
        if (renameat(directory.get(), (record + unfinished).c_str(), directory.get(), record.c_str()) != 0) {
            const int error = errno;
            keepRefusal(directory.pathOf(record), error);
            return false;
        }
    }
    return true;
} catch (const std::exception&) {
    return false;
}

void keepModule() noexcept
{
    Dl_info module{};
    if (dladdr(reinterpret_cast<const void*>(&keepModule), &module) != 0)
        dlopen(module.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

} // namespace quorel::platform
