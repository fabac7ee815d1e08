// SPDX-License-Identifier: MIT
#include "tests/settings_linux/every_order.h"

#include "settings/control_block.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sched.h>
#include <stdexcept>
#include <sys/mman.h>
#include <thread>
#include <ucontext.h>
#include <utility>

namespace quorel {

namespace {

constexpr std::size_t page = 4096; // bytes

// The one that runs, for the processor's signals, and the thread in it.
Orders* current = nullptr;
thread_local void* self = nullptr; // an Orders::Thread

struct Field {
    std::size_t end; // offset behind it
    const char* name;
};

// Of the control block.
constexpr std::array<Field, 6> fields{{{4, "sequence"},
                                       {8, "version"},
                                       {16, "format"},
                                       {settingsOffset + settingsBytes, "settings"},
                                       {offsetof(ControlBlock, levels), "reserved"},
                                       {page, "levels"}}};

const char* fieldAt(std::size_t offset)
{
    return std::find_if(fields.begin(), fields.end(), [offset](const Field& field) { return offset < field.end; })->name;
}

// ---- The processor's signals ----------------------------------------------------------------------------------------------

constexpr greg_t trapFlag = 0x100; // in the flags: a trap behind the next instruction
constexpr greg_t wroteFlag = 0x2;  // in a page fault's code

struct Handlers {
    struct sigaction fault {};
    struct sigaction trap {};
} before;

void onFault(int, siginfo_t* info, void* context)
{
    const int error = errno;
    auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    if (current == nullptr || self == nullptr) {
        sigaction(SIGSEGV, &before.fault, nullptr); // not of ours: it faults once more
    } else if (current->access(info->si_addr, (registers[REG_ERR] & wroteFlag) != 0)) {
        registers[REG_EFL] |= trapFlag;
    }
    errno = error;
}

void onTrap(int, siginfo_t*, void* context)
{
    const int error = errno;
    static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL] &= ~trapFlag;
    current->afterAccess();
    errno = error;
}

void handle(int signal, void (*handler)(int, siginfo_t*, void*), struct sigaction& old)
{
    struct sigaction action {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigaction(signal, &action, &old);
}

} // namespace

Orders::Orders(std::vector<Choice>& choices, const Extent& extent)
    : choices(choices), changesLeft(extent.changes), everyAccess(extent.everyAccess)
{
    Thread& test = add("test");
    test.hasTurn = true;
    self = &test;
    current = this;
    handle(SIGSEGV, onFault, before.fault);
    handle(SIGTRAP, onTrap, before.trap);
    platform::faultyPlatform().conductor = this;
}

Orders::~Orders()
{
    settle();
    if (!std::all_of(std::next(threads.begin()), threads.end(), [](const Thread& thread) { return thread.ended; }))
        fail("a thread is left waiting");
    platform::faultyPlatform().conductor = nullptr;
    sigaction(SIGSEGV, &before.fault, nullptr);
    sigaction(SIGTRAP, &before.trap, nullptr);
    current = nullptr;
    self = nullptr;
    for (auto& memory : watched)
        mprotect(memory.begin.get(), memory.bytes, PROT_READ | PROT_WRITE);
}

// ---- Turns ----------------------------------------------------------------------------------------------------------------

Orders::Thread& Orders::add(const std::string& name)
{
    auto& thread = threads.emplace_back();
    thread.name = name;
    return thread;
}

// What a new thread runs: the work, from its first turn on.
std::function<void()> Orders::onTurn(Thread& thread, std::function<void()> work)
{
    return [this, &thread, work = std::move(work)] {
        self = &thread;
        {
            std::unique_lock guard(mutex);
            thread.turn.wait(guard, [&thread] { return thread.hasTurn; });
        }
        work();
        const std::lock_guard guard(mutex);
        for (auto& memory : watched)
            close(memory);
        thread.ended = true;
        giveTurn(&thread);
    };
}

std::function<void()> Orders::join(std::function<void()> work)
{
    const std::lock_guard guard(mutex);
    return onTurn(add("thread"), std::move(work));
}

void Orders::run(std::vector<Part> parts)
{
    std::vector<std::thread> running;
    std::vector<Thread*> ours;
    for (auto& part : parts) {
        ours.push_back(&add(part.name));
        running.emplace_back(onTurn(*ours.back(), std::move(part.work)));
    }
    exploring = true;
    step("run", [&] { return std::all_of(ours.begin(), ours.end(), [](auto* part) { return part->ended; }) && othersWait(); });
    exploring = false;
    for (auto& thread : running)
        thread.join();
}

void Orders::settle()
{
    step("settle", [this] { return othersWait(); });
}

bool Orders::othersWait() const
{
    return std::all_of(std::next(threads.begin()), threads.end(),
                       [](const Thread& thread) { return thread.ended || (thread.ready && !thread.ready()); });
}

void Orders::step(const std::string& call, const std::function<bool()>& ready)
{
    if (self == nullptr)
        return;
    auto& thread = *static_cast<Thread*>(self);
    const std::lock_guard guard(mutex);
    const auto operation = call.substr(0, call.find(' '));
    const bool isValue = operation == "queryValue" || operation == "setNumber";
    if (isValue && operation == thread.last) {
        made.push_back(thread.name + ": " + call);
        return;
    }
    takeTurn(thread, call, ready);
    thread.last = isValue ? operation : "";
}

void Orders::takeTurn(Thread& thread, const std::string& call, const std::function<bool()>& ready)
{
    for (auto& memory : watched)
        close(memory);
    thread.ready = ready;
    if (call == "pause") // of use only when somebody else goes on
        thread.ready = [this, steps = made.size()] { return made.size() > steps; };
    thread.hasTurn = false;
    giveTurn(&thread);
    std::unique_lock guard(mutex, std::adopt_lock);
    thread.turn.wait(guard, [&thread] { return thread.hasTurn; });
    static_cast<void>(guard.release());
    made.push_back(thread.name + ": " + call);
}

// The threads that can go on: the one that had the turn first, then in the order of their making.
void Orders::giveTurn(Thread* from)
{
    const auto canGoOn = [](const Thread& thread) { return !thread.ended && (!thread.ready || thread.ready()); };
    std::vector<Thread*> next;
    if (canGoOn(*from))
        next.push_back(from);
    const bool isChange = !next.empty();
    if (!isChange || (exploring && changesLeft > 0)) {
        for (auto& thread : threads) {
            if (&thread != from && canGoOn(thread))
                next.push_back(&thread);
        }
    }
    if (next.empty())
        fail("nobody can go on");

    std::size_t taken = 0;
    if (exploring && next.size() > 1) {
        if (choice == choices.size())
            choices.push_back({0, next.size()});
        if (choices[choice].of != next.size())
            fail("the same order gave other steps");
        taken = choices[choice++].taken;
    }
    if (isChange && taken != 0)
        --changesLeft;
    next[taken]->hasTurn = true;
    next[taken]->turn.notify_one();
}

std::vector<std::string> Orders::stepsOf(const std::string& name) const
{
    std::vector<std::string> result;
    for (const auto& step : made) {
        if (step.starts_with(name + ": "))
            result.push_back(step.substr(name.size() + 2));
    }
    return result;
}

// The threads can't be ended, so the program is.
void Orders::fail(const char* reason) const
{
    std::fprintf(stderr, "every_order: %s; the steps:\n", reason);
    for (const auto& step : made)
        std::fprintf(stderr, "  %s\n", step.c_str());
    std::_Exit(1);
}

// ---- Shared memory --------------------------------------------------------------------------------------------------------

std::shared_ptr<std::byte> Orders::memory(const std::string& name, std::size_t bytes)
{
    const auto whole = (bytes + page - 1) / page * page;
    void* begin = mmap(nullptr, whole, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (begin == MAP_FAILED)
        throw std::runtime_error("every_order: no memory");
    watched.push_back({name, {static_cast<std::byte*>(begin), [whole](std::byte* old) { munmap(old, whole); }}, whole});
    return watched.back().begin;
}

void Orders::close(Watched& memory)
{
    if (std::exchange(memory.open, false))
        mprotect(memory.begin.get(), memory.bytes, PROT_NONE);
}

// Opens the memory for the access. True when that is to last for one instruction; other memory than the block, which is large
// and written as a whole, stays open up to the thread's next step.
bool Orders::access(const void* address, bool writes)
{
    const auto memory = std::find_if(watched.begin(), watched.end(), [address](const Watched& candidate) {
        return address >= candidate.begin.get() && address < candidate.begin.get() + candidate.bytes;
    });
    if (memory == watched.end()) {
        sigaction(SIGSEGV, &before.fault, nullptr);
        return false;
    }
    const bool isBlock = memory->name == controlBlockName;
    const auto offset = static_cast<std::size_t>(static_cast<const std::byte*>(address) - memory->begin.get());
    const std::string field = isBlock ? fieldAt(offset) : memory->name;
    std::string call = (writes ? "write " : "read ") + field;
    const bool isSettings = isBlock && field == "settings";
    if (isSettings && everyAccess)
        call += ' ' + std::to_string(offset);

    auto& thread = *static_cast<Thread*>(self);
    const std::lock_guard guard(mutex);
    if (call != thread.last || field == "sequence" || (isSettings && everyAccess))
        takeTurn(thread, call, {});
    thread.last = call;
    memory->open = true;
    mprotect(memory->begin.get(), memory->bytes, PROT_READ | PROT_WRITE);
    return isBlock;
}

void Orders::afterAccess()
{
    for (auto& memory : watched) {
        if (memory.name == controlBlockName)
            close(memory);
    }
}

// ---- All orders -----------------------------------------------------------------------------------------------------------

namespace {

// One thread runs at a time anyway: on one processor it gives its turn away without waking another one.
class OneProcessor {
public:
    OneProcessor()
    {
        sched_getaffinity(0, sizeof before, &before);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(sched_getcpu(), &one);
        sched_setaffinity(0, sizeof one, &one);
    }
    ~OneProcessor() { sched_setaffinity(0, sizeof before, &before); }

private:
    cpu_set_t before{};
};

} // namespace

std::size_t everyOrder(const std::function<void(Orders&)>& scenario, const Extent& extent)
{
    const OneProcessor pinned;
    std::vector<Orders::Choice> choices;
    for (std::size_t count = 1;; ++count) {
        platform::faultyPlatform().reset();
        Orders order(choices, extent);
        scenario(order);
        if (testing::Test::HasFailure()) {
            std::printf("order %zu:\n", count);
            for (const auto& step : order.steps())
                std::printf("  %s\n", step.c_str());
            return count;
        }
        while (!choices.empty() && choices.back().taken + 1 == choices.back().of)
            choices.pop_back();
        if (choices.empty())
            return count;
        ++choices.back().taken;
    }
}

} // namespace quorel
