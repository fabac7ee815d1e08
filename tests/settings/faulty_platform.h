// SPDX-License-Identifier: MIT
// A third set of the operations in platform/sharing.h, lock.h, named_lock.h and registry.h, for tests: objects and values
// stand in this process's own memory, every call is written down, and any of them fails where a test asks for it.
//
// A test program that compiles faulty_platform.cpp and faulty_registry.cpp gets these operations in place of the system's.
#pragma once

#include "platform/lock.h"
#include "platform/registry.h"
#include "platform/sharing.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace quorel::platform {

// Decides the order in which the calls of several threads do their work: every_order.h has one.
class Conductor {
public:
    // Before a call does its work; returns when it may. A call that has to wait is `ready` when it need not any more.
    virtual void step(const std::string& call, const std::function<bool()>& ready) = 0;

    // What a new thread runs in place of `work`.
    virtual std::function<void()> join(std::function<void()> work) = 0;

    // Memory for a mapping, zero.
    virtual std::shared_ptr<std::byte> memory(const std::string& name, std::size_t bytes) = 0;

protected:
    ~Conductor() = default;
};

struct FaultyPlatform {
    // Null: every call does its work at once, and waits where it has to.
    Conductor* conductor = nullptr;

    // Lets a call fail. It is named as it is written down: "openMapping Global\QUORELMem", "setNumber Reverb".
    void fail(const std::string& call);

    // What happens before a call does its work; calls of locks are "lock", "try lock" and "unlock".
    void doBefore(const std::string& call, std::function<void()> work);

    // Nobody can take a lock by trying.
    std::atomic<bool> locksAreTaken = false;

    // The kept values: path below its root, name, value. A key without values is one that exists.
    std::map<std::string, std::map<std::string, std::uint32_t>> keys;

    // Names of kept values that are there and have no bytes, as a value of another type may be.
    std::set<std::string> emptyValues;

    // What a mapping or a named event was made with: its size, 0 for an event, and the text of its descriptor.
    std::map<std::string, std::pair<std::uint32_t, std::string>> made;

    // What was called since the last call of this operation, the waiting of threads and the locks apart.
    std::vector<std::string> takeCalls();

    // How often a thread has begun to wait for either of two events.
    int waits();

    // The handles and views that are open, in the words of the calls that opened them.
    std::multiset<std::string> open();

    // Forgets everything but the threads that run.
    void reset();

private:
    friend bool begin(const std::string& call, const std::function<bool()>& ready);
    friend void runBefore(const std::string& call);
    friend class UserTurn;

    std::set<std::string> failing;
    std::map<std::string, std::function<void()>> before;
    int waitCount = 0;
};

FaultyPlatform& faultyPlatform();

// Writes the call down; false when it is to fail. One that is to fail waits for nothing.
bool begin(const std::string& call, const std::function<bool()>& ready = {});

} // namespace quorel::platform
