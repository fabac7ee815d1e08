// SPDX-License-Identifier: MIT
#include "tests/settings/faulty_platform.h"

#include "platform/named_lock.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

namespace quorel::platform {

namespace {

// An event is set or clear; a thread is "set" when it has ended.
struct Signal {
    bool set = false;
};

struct Memory {
    std::shared_ptr<std::byte> begin;
    std::size_t bytes;
};

} // namespace

struct Object {
    std::string call; // that opened it
    std::shared_ptr<Memory> memory;
    std::shared_ptr<Signal> signal;
    std::thread thread{}; // until the handle is closed
};

namespace {

struct View {
    std::string call;
    std::shared_ptr<Memory> memory;
};

// Never destroyed: threads may still be here at the end of the process, and what a test leaves open stays.
struct World {
    std::mutex mutex; // guards all that follows
    std::condition_variable changed;
    std::vector<std::string> calls;
    std::map<std::string, std::weak_ptr<Memory>> memories;
    std::map<std::string, std::weak_ptr<Signal>> events;
    std::set<std::string> namedLocks; // that are held
    std::deque<Object> objects;       // that were ever opened
    std::set<Object*> open;
    std::multimap<void*, View> views;
};

World& world()
{
    static auto& world = *new World;
    return world;
}

} // namespace

void runBefore(const std::string& call)
{
    std::function<void()> first;
    {
        const std::lock_guard guard(world().mutex);
        const auto& before = faultyPlatform().before;
        if (const auto found = before.find(call); found != before.end())
            first = found->second;
    }
    if (first)
        first();
}

bool begin(const std::string& call, const std::function<bool()>& ready)
{
    if (auto* conductor = faultyPlatform().conductor; conductor != nullptr)
        conductor->step(call, faultyPlatform().failing.contains(call) ? nullptr : ready);
    bool fails = false;
    {
        const std::lock_guard guard(world().mutex);
        auto& platform = faultyPlatform();
        if (call == "waitForEither")
            ++platform.waitCount;
        else
            world().calls.push_back(call);
        fails = platform.failing.contains(call);
    }
    runBefore(call);
    return !fails;
}

namespace {

Handle opened(const std::string& call, std::shared_ptr<Memory> memory, std::shared_ptr<Signal> signal)
{
    world().objects.push_back({call, std::move(memory), std::move(signal)});
    auto* object = &world().objects.back();
    world().open.insert(object);
    return object;
}

bool setSignal(Handle object, const char* call, bool set)
{
    if (!begin(call + (' ' + object->call)))
        return false;
    const std::lock_guard guard(world().mutex);
    object->signal->set = set;
    world().changed.notify_all();
    return true;
}

} // namespace

FaultyPlatform& faultyPlatform()
{
    static auto& platform = *new FaultyPlatform; // threads may still use it at the end of the process
    return platform;
}

void FaultyPlatform::fail(const std::string& call)
{
    const std::lock_guard guard(world().mutex);
    failing.insert(call);
}

void FaultyPlatform::doBefore(const std::string& call, std::function<void()> work)
{
    const std::lock_guard guard(world().mutex);
    before[call] = std::move(work);
}

std::vector<std::string> FaultyPlatform::takeCalls()
{
    const std::lock_guard guard(world().mutex);
    return std::exchange(world().calls, {});
}

int FaultyPlatform::waits()
{
    const std::lock_guard guard(world().mutex);
    return waitCount;
}

std::multiset<std::string> FaultyPlatform::open()
{
    const std::lock_guard guard(world().mutex);
    std::multiset<std::string> result;
    for (const auto* object : world().open)
        result.insert(object->call);
    for (const auto& [address, view] : world().views)
        result.insert(view.call);
    return result;
}

void FaultyPlatform::reset()
{
    const std::lock_guard guard(world().mutex);
    failing.clear();
    before.clear();
    locksAreTaken = false;
    keys.clear();
    emptyValues.clear();
    made.clear();
    waitCount = 0;
    world().calls.clear();
    world().open.clear(); // what a test left open is lost, as at the end of a process
    world().views.clear();
    world().memories.clear();
    world().events.clear();
    world().namedLocks.clear();
}

// ---- sharing.h --------------------------------------------------------------------------------------------------------

struct Descriptor {
    std::string text;
};

Descriptor* convertDescriptor(const char* text) noexcept
{
    return begin("convertDescriptor") ? new Descriptor{text} : nullptr;
}

void freeDescriptor(Descriptor* descriptor) noexcept
{
    begin("freeDescriptor");
    delete descriptor;
}

Handle openMapping(const char* name) noexcept
{
    const auto call = std::string("openMapping ") + name;
    if (!begin(call))
        return nullptr;
    const std::lock_guard guard(world().mutex);
    auto memory = world().memories[name].lock();
    return memory ? opened(call, std::move(memory), nullptr) : nullptr;
}

Handle createMapping(const char* name, std::uint32_t bytes, const Descriptor* descriptor) noexcept
{
    const auto call = std::string("createMapping ") + name;
    if (!begin(call) || descriptor->text.empty())
        return nullptr;
    const std::lock_guard guard(world().mutex);
    auto memory = world().memories[name].lock();
    if (!memory) {
        auto* conductor = faultyPlatform().conductor;
        auto zero = conductor != nullptr ? conductor->memory(name, bytes)
                                         : std::shared_ptr<std::byte>(new std::byte[bytes](), std::default_delete<std::byte[]>());
        world().memories[name] = memory = std::make_shared<Memory>(Memory{std::move(zero), bytes});
        faultyPlatform().made[name] = {bytes, descriptor->text};
    }
    return opened(call, std::move(memory), nullptr);
}

void* mapView(Handle mapping, std::size_t bytes) noexcept
{
    const auto call = "mapView" + mapping->call.substr(mapping->call.find(' '));
    if (!begin(call) || mapping->memory->bytes < bytes)
        return nullptr;
    const std::lock_guard guard(world().mutex);
    auto* view = mapping->memory->begin.get();
    world().views.insert({view, {call, mapping->memory}});
    return view;
}

void unmapView(void* view, std::size_t bytes) noexcept
{
    begin("unmapView " + std::to_string(bytes));
    const std::lock_guard guard(world().mutex);
    if (const auto found = world().views.find(view); found != world().views.end())
        world().views.erase(found);
}

Handle createEvent(const char* name, const Descriptor* descriptor) noexcept
{
    const auto call = std::string("createEvent ") + (name != nullptr ? name : "unnamed");
    if (!begin(call) || (name == nullptr) != (descriptor == nullptr))
        return nullptr;
    const std::lock_guard guard(world().mutex);
    auto signal = name != nullptr ? world().events[name].lock() : nullptr;
    if (!signal) {
        signal = std::make_shared<Signal>();
        if (name != nullptr)
            faultyPlatform().made[name] = {0, descriptor->text};
    }
    if (name != nullptr)
        world().events[name] = signal;
    return opened(call, nullptr, std::move(signal));
}

Handle openEvent(const char* name) noexcept
{
    const auto call = std::string("openEvent ") + name;
    if (!begin(call))
        return nullptr;
    const std::lock_guard guard(world().mutex);
    auto signal = world().events[name].lock();
    return signal ? opened(call, nullptr, std::move(signal)) : nullptr;
}

bool setEvent(Handle event) noexcept
{
    return setSignal(event, "setEvent", true);
}

bool resetEvent(Handle event) noexcept
{
    return setSignal(event, "resetEvent", false);
}

int waitForEither(Handle first, Handle second) noexcept
{
    const auto one = first->signal;
    const auto other = second->signal;
    if (!begin("waitForEither", [&] { return one->set || other->set; }))
        return -1;
    std::unique_lock guard(world().mutex);
    world().changed.wait(guard, [&] { return one->set || other->set; });
    return one->set ? 0 : 1;
}

Handle startThread(void (*run)(void*), void* argument) noexcept
{
    if (!begin("startThread"))
        return nullptr;
    auto ended = std::make_shared<Signal>();
    std::function<void()> work = [run, argument, ended] {
        run(argument);
        const std::lock_guard guard(world().mutex);
        ended->set = true;
        world().changed.notify_all();
    };
    auto* conductor = faultyPlatform().conductor;
    const std::lock_guard guard(world().mutex);
    Object* const object = opened("startThread", nullptr, std::move(ended));
    if (conductor != nullptr)
        std::thread(conductor->join(std::move(work))).detach();
    else
        object->thread = std::thread(std::move(work));
    return object;
}

bool waitFor(Handle object, std::uint32_t milliseconds) noexcept
{
    if (!begin("waitFor " + object->call + ' ' + std::to_string(milliseconds), [object] { return object->signal->set; }))
        return false;
    std::unique_lock guard(world().mutex);
    return world().changed.wait_for(guard, std::chrono::milliseconds(milliseconds), [object] { return object->signal->set; });
}

void closeHandle(Handle object) noexcept
{
    begin("closeHandle " + object->call);
    std::thread ended;
    {
        const std::lock_guard guard(world().mutex);
        object->memory.reset();
        world().open.erase(object);
        if (object->thread.joinable() && !object->signal->set)
            object->thread.detach();
        ended = std::move(object->thread);
    }
    // One that has ended is joined: of threads that end detached Windows loses the next one now and then, as this compiler's
    // library makes them.
    if (ended.joinable())
        ended.join();
}

void leaveOpen(Handle) noexcept {}

struct UserTurn::State {};

UserTurn::UserTurn(std::uint32_t) noexcept
{
    static State always;
    const std::lock_guard guard(world().mutex);
    if (!faultyPlatform().failing.contains("UserTurn"))
        state = &always;
}

UserTurn::~UserTurn() = default;

bool UserTurn::finish() noexcept
{
    const std::lock_guard guard(world().mutex);
    return !faultyPlatform().failing.contains("UserTurn::finish");
}

void pause(std::uint32_t milliseconds) noexcept
{
    begin("pause");
    if (faultyPlatform().conductor == nullptr)
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void keepModule() noexcept
{
    begin("keepModule");
}

// ---- lock.h -----------------------------------------------------------------------------------------------------------

namespace {

struct LockState {
    std::mutex mutex;
    std::atomic<bool> taken = false;
};

LockState& stateOf(std::array<std::byte, 40>& bytes)
{
    static_assert(sizeof(LockState*) <= sizeof bytes);
    LockState* result = nullptr;
    std::memcpy(&result, bytes.data(), sizeof result);
    return *result;
}

void stepOfLock(const char* call, const std::function<bool()>& ready = {})
{
    if (auto* conductor = faultyPlatform().conductor; conductor != nullptr)
        conductor->step(call, ready);
    runBefore(call);
}

} // namespace

Lock::Lock() noexcept
{
    auto* made = new LockState;
    std::memcpy(state.data(), &made, sizeof made);
}

Lock::~Lock()
{
    delete &stateOf(state);
}

void Lock::lock() noexcept
{
    auto& lock = stateOf(state);
    stepOfLock("lock", [&lock] { return !lock.taken; });
    lock.mutex.lock();
    lock.taken = true;
}

bool Lock::try_lock() noexcept
{
    stepOfLock("try lock");
    auto& lock = stateOf(state);
    if (faultyPlatform().locksAreTaken || !lock.mutex.try_lock())
        return false;
    lock.taken = true;
    return true;
}

void Lock::unlock() noexcept
{
    stepOfLock("unlock");
    auto& lock = stateOf(state);
    lock.taken = false;
    lock.mutex.unlock();
}

void ModuleLock::lock() noexcept
{
    const auto self = std::hash<std::thread::id>()(std::this_thread::get_id()) | 1U;
    for (std::uintptr_t none = 0; holder != self && !holder.compare_exchange_strong(none, self); none = 0)
        std::this_thread::yield();
    ++entries;
}

void ModuleLock::unlock() noexcept
{
    if (--entries == 0)
        holder = 0;
}

// ---- named_lock.h -----------------------------------------------------------------------------------------------------

NamedLock::NamedLock(const char* name, const Descriptor*, std::uint32_t milliseconds) noexcept
{
    const auto free = [name] { return !world().namedLocks.contains(name); };
    if (!begin(std::string("namedLock ") + name, free))
        return;
    std::unique_lock guard(world().mutex);
    if (!world().changed.wait_for(guard, std::chrono::milliseconds(milliseconds), free))
        return;
    held = reinterpret_cast<std::intptr_t>(&*world().namedLocks.insert(name).first);
}

NamedLock::~NamedLock()
{
    if (held == none)
        return;
    const auto& name = *reinterpret_cast<const std::string*>(held);
    begin("release " + name);
    const std::lock_guard guard(world().mutex);
    world().namedLocks.erase(std::string(name));
    world().changed.notify_all();
}

} // namespace quorel::platform
