// SPDX-License-Identifier: MIT
// What processes share, and what a thread waits for: named memory, named events, threads, under one meaning on every system.
//
// Names are those of Windows' kernel objects, such as "Global\QUORELMem", in ASCII. An object lives exactly as long as some
// process holds it open; a process that is killed holds nothing any more. What is opened when, and what a failure means, is
// decided in settings/.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorel::platform {

struct Object;          // an open mapping, event or thread
using Handle = Object*; // null: none

struct Descriptor; // who may use a named object

// Turns a security descriptor in its text form into what the operations below take; null on failure. On Linux the objects
// belong to the user who makes them, and nobody else reaches them.
Descriptor* convertDescriptor(const char* text) noexcept;
void freeDescriptor(Descriptor* descriptor) noexcept;

// An existing mapping, for reading and writing; null when there is none or it may not be used.
Handle openMapping(const char* name) noexcept;

// A new mapping of `bytes` zero bytes, or the existing one of that name; null on failure. On Linux what is made in a turn is
// found by others from the turn's finish on.
Handle createMapping(const char* name, std::uint32_t bytes, const Descriptor* descriptor) noexcept;

// The first `bytes` of a mapping, at an address of this process, for reading and writing; null on failure, as when the
// mapping is smaller.
void* mapView(Handle mapping, std::size_t bytes) noexcept;
void unmapView(void* view, std::size_t bytes) noexcept;

// An event stays set until it is reset. createEvent gives a new one, clear, or the existing one of that name; `name` null
// makes an unnamed one with the system's own descriptor. Null on failure. On Linux each process resets a named event for
// itself alone, and one that opens an event of others finds it set, since nobody knows what it missed.
Handle createEvent(const char* name, const Descriptor* descriptor) noexcept;
Handle openEvent(const char* name) noexcept;
bool setEvent(Handle event) noexcept;
bool resetEvent(Handle event) noexcept;

// Waits without limit until one of the two events is set: 0 or 1, the first when both are; -1 when the wait fails.
int waitForEither(Handle first, Handle second) noexcept;

// Starts a thread with the system's default attributes; null on failure.
Handle startThread(void (*run)(void*), void* argument) noexcept;

// Waits until an event is set or a thread has ended, so that none of its code runs any more; false when the time is over or
// the wait fails.
bool waitFor(Handle object, std::uint32_t milliseconds) noexcept;

// The calling thread does nothing for so long.
void pause(std::uint32_t milliseconds) noexcept;

// Gives up this process's hold. A thread goes on.
void closeHandle(Handle object) noexcept;

// Leaves an unnamed event that nobody waits for any more, or a mapping with its view, open to the end of the process. Where the
// system allows it, the next handle of that kind and the next view are the same ones: they don't become more and more.
void leaveOpen(Handle object) noexcept;

// A turn among the user's processes to make and fill what they share: while one has it, the others wait for theirs. A process
// that ends in its turn, however it ends, gives it up, and nobody finds what it had made. Only on Linux; on Windows, where the
// objects are the machine's, everybody always has it.
class UserTurn {
public:
    explicit UserTurn(std::uint32_t milliseconds) noexcept; // for which it waits at most
    ~UserTurn();
    UserTurn(const UserTurn&) = delete;
    UserTurn& operator=(const UserTurn&) = delete;

    // False when the time was over, or when there can be no turn.
    explicit operator bool() const noexcept { return state != nullptr; }

    // What was made is filled: from now on others find it. False when they can't.
    bool finish() noexcept;

    struct State;

private:
    State* state = nullptr;
};

// Keeps the module that this code stands in loaded to the end of the process: a thread of it goes on and nobody waits for it
// any more.
void keepModule() noexcept;

} // namespace quorel::platform
