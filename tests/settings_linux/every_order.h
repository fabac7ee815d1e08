// SPDX-License-Identifier: MIT
// A small scenario of several threads, run once in every order in which their steps can follow one another.
//
// A step is what one thread can let another one see: a call of the operations in tests/settings/faulty_platform.h, those of
// the locks among them, or an access to shared memory. Nothing runs but the thread whose turn it is, up to its next step, so
// an order is a list of turns and comes out the same each time. Nobody sleeps and hopes: a fault that shows in one order in a
// thousand shows in every run of the test.
//
// Shared memory is watched by the processor: its pages are closed, so an access faults, waits for its turn, and is then done
// as a single instruction. Whoever reads or writes it needs to know nothing of this.
//
//   everyOrder([](Orders& order) {
//       const auto handler = SettingsHandler::instance(0);
//       ControlApplication control;
//       order.run({{"control", [&] { control.update(settings, 1); }}, {"audio", [&] { handler->poll(record); }}});
//       EXPECT_EQ(...);
//   });
//
// Outside of `run` the scenario's own thread has all the turns as long as it need not wait. At its end no thread is left.
//
// Steps bear the names of the calls; those of the locks are "lock", "try lock" and "unlock". An access is "read" or "write" and
// what it is in the control block: "sequence", "version", "format", "settings", "reserved", "levels"; of another mapping its
// name. Accesses to one and the same of them without another step in between are one step, unless `everyAccess` is asked for;
// then those to the settings bear the offset too: "write settings 16". Kept values that are read or written in a row are one
// step.
#pragma once

#include "tests/settings/faulty_platform.h"

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace quorel {

struct Extent {
    // How often a turn may go to another thread while the one before could still go on. Faults of order show with two or three.
    int changes = 1000;
    bool everyAccess = false; // each instruction that reads or writes the settings is a step
};

class Orders final : public platform::Conductor {
public:
    struct Part {
        std::string name;
        std::function<void()> work;
    };

    // A point where more than one thread could go on.
    struct Choice {
        std::size_t taken;
        std::size_t of;
    };

    Orders(std::vector<Choice>& choices, const Extent& extent);
    ~Orders();

    // Runs the parts on threads of their own; returns when they have ended and every other thread waits.
    void run(std::vector<Part> parts);

    // Lets every other thread go on until it waits.
    void settle();

    // The steps so far, each behind the name of its thread: "control: write sequence". A thread that the code under test starts
    // is the "thread"; the scenario's own is the "test".
    const std::vector<std::string>& steps() const { return made; }
    std::vector<std::string> stepsOf(const std::string& name) const;

    void step(const std::string& call, const std::function<bool()>& ready) override;
    std::function<void()> join(std::function<void()> work) override;
    std::shared_ptr<std::byte> memory(const std::string& name, std::size_t bytes) override;

    // For the handlers of the processor's signals.
    bool access(const void* address, bool writes);
    void afterAccess();

private:
    struct Thread {
        std::string name;
        std::function<bool()> ready; // empty: at once
        bool ended = false;
        bool hasTurn = false;
        std::condition_variable turn;
        std::string last; // an access, or a reading or writing of values; empty after any other step
    };
    struct Watched {
        std::string name;
        std::shared_ptr<std::byte> begin;
        std::size_t bytes; // of whole pages
        bool open = false;
    };

    Thread& add(const std::string& name);
    std::function<void()> onTurn(Thread& thread, std::function<void()> work);
    void takeTurn(Thread& thread, const std::string& call, const std::function<bool()>& ready);
    void giveTurn(Thread* from);
    bool othersWait() const;
    void close(Watched& memory);
    [[noreturn]] void fail(const char* reason) const;

    std::vector<Choice>& choices;
    std::size_t choice = 0; // the next one
    int changesLeft;
    bool everyAccess;
    bool exploring = false;

    std::mutex mutex; // guards the threads
    std::list<Thread> threads;
    std::vector<std::string> made;
    std::list<Watched> watched;
};

// Returns how many orders there were. Stops behind the first one with a failed expectation, and shows its steps.
std::size_t everyOrder(const std::function<void(Orders&)>& scenario, const Extent& extent = {});

} // namespace quorel
