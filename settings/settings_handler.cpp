// SPDX-License-Identifier: MIT
#include "settings/settings_handler.h"

#include "platform/registry.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace quorel {

namespace {

constexpr std::uint32_t stopPatience = 500;  // ms, for the memory thread to end
constexpr std::uint32_t turnPatience = 2000; // ms, for other processes of the user that start
constexpr float idleLevel = -120.0F;         // dB

// Of the account that runs the effect.
constexpr const char* settingsKey = "Software\\VEDRA\\QUOREL";
constexpr std::uint32_t keyRead = 0x20019;
constexpr std::uint32_t keyWrite = 0x20006;
constexpr platform::RegistryResult notFound = 2;

// ---- What the process has once --------------------------------------------------------------------------------------

// Guarded by the handler's lock, but for `generation`, which is compared without it.
struct alignas(16) Snapshot : SettingsRecord {
} snapshot;
static_assert(alignof(Snapshot) == 16 && sizeof(Snapshot) == sizeof(SettingsRecord));

// Guarded by instanceMutex.
std::weak_ptr<SettingsHandler> current;

// Never destroyed, since effect objects may outlive the statics.
//
// Its holder may take it again: the thread that failed to start a handler holds it for good, and may try again.
constinit platform::ModuleLock instanceMutex;

// True from a handler's start to the end of its stop. The next one starts behind that: both work on the block, on the kept
// values and on the snapshot, each under a lock of its own. The last reference goes some time before the stop begins, so
// `current` cannot tell.
std::atomic<bool> handlerStands = false;
constexpr std::uint32_t standingPause = 1; // ms, between two looks

// ---- Words that somebody else may use in this moment ----------------------------------------------------------------
//
// The block is plain memory shared with other processes, without locks and without atomic operations: its writers know of
// none. Within this process several threads may use one word of it, and `generation`, at once. So each is read and written
// as a whole, by what compiles to one plain load or store.

template <typename T>
T read(T& word, std::memory_order order = std::memory_order_relaxed) noexcept
{
    static_assert(std::atomic_ref<T>::is_always_lock_free);
    return std::atomic_ref(word).load(order);
}

template <typename T>
void write(T& word, std::type_identity_t<T> value) noexcept
{
    static_assert(std::atomic_ref<T>::is_always_lock_free);
    std::atomic_ref(word).store(value, std::memory_order_relaxed);
}

// Takes the block's settings over, under the lock. The bytes may change under the copy when the control application writes
// its next update; the change of `sequence` that ends that update brings a copy of its own.
void refreshSnapshot(const ControlBlock& block)
{
    copySettings(block, snapshot);
    write(snapshot.generation, snapshot.generation + 1);
}

// ---- The values that are kept ---------------------------------------------------------------------------------------

// Calls visit(name, field) for each of them, in the order of reading and writing.
template <typename Visit>
void forEachKeptValue(SettingsRecord& record, Visit visit)
{
    visit("Enabled", record.Enabled);
    visit("Settings", record.Settings);
    visit("noiseGate", record.noiseGate);
    visit("micEq", record.micEq);
    visit("Reverb", record.Reverb);
    visit("MicNR", record.MicNR);
    for (std::size_t band = 0; band < record.EQBand.size(); ++band) {
        std::array<char, 8> name{};
        std::snprintf(name.data(), name.size(), "EQBand%d", static_cast<int>(band) + 1);
        visit(name.data(), record.EQBand[band]);
    }
}

} // namespace

std::shared_ptr<SettingsHandler> SettingsHandler::instance(std::uint32_t version)
{
    // Required: not given up when something below throws, so that another thread's call waits for ever.
    instanceMutex.lock();
    auto handler = current.lock();
    if (!handler) {
        while (handlerStands)
            platform::pause(standingPause);
        handler = std::shared_ptr<SettingsHandler>(new SettingsHandler, release);
        handlerStands = true;
        handler->start(version);
        current = handler;
    }
    instanceMutex.unlock();
    return handler;
}

// Required: what a failure leaves open stays open, the handles as well as the views.
void SettingsHandler::start(std::uint32_t version)
{
    {
        // Nobody else takes the block for a valid one before the kept values stand in it.
        platform::UserTurn turn(turnPatience);
        if (!turn)
            throw std::runtime_error("CreateFileMapping for SHARED_MEM failed");
        if (openSharedObjects(version)) {
            load();
            writeIdleLevels();
        }
        if (!turn.finish())
            throw std::runtime_error("CreateFileMapping for SHARED_MEM failed");
    }
    running = true;
    hMemThread = platform::startThread([](void* handler) { static_cast<SettingsHandler*>(handler)->runMemoryThread(); }, this);
    if (hMemThread == nullptr)
        throw std::runtime_error("Failed to create hMemThread");
}

// Behind the last reference, or behind a start that failed.
void SettingsHandler::release(SettingsHandler* handler) noexcept
{
    if (handler->hMemThread != nullptr)
        handler->stop();
    else
        delete handler;
    handlerStands = false;
}

void SettingsHandler::stop() noexcept
{
    writeActiveFormat(0, 0.0F);
    save();
    {
        const std::lock_guard guard(lock);
        running = false; // from now on the snapshot is the next handler's
    }
    platform::setEvent(hStop);
    if (!platform::waitFor(hMemThread, stopPatience)) {
        platform::keepModule(); // the thread is never killed, and still uses its code, the handler and its view
        if (!handedOver.exchange(true))
            return;
    }
    close();
}

void SettingsHandler::close() noexcept
{
    platform::unmapView(block, sizeof(ControlBlock));
    platform::closeHandle(hMem);
    platform::closeHandle(hEvent);
    platform::closeHandle(hMemThread);
    // Required: hStop, hHrtf and the share's view stay open to the end of the process, so `hrtfData` stays a valid address.
    platform::leaveOpen(hStop);
    platform::leaveOpen(hHrtf);
    delete this;
}

// Opens or makes the shared memory and the events; true when this call made the block. A block that is there already counts
// as valid, whatever its version.
bool SettingsHandler::openSharedObjects(std::uint32_t version)
{
    bool created = false;
    {
        const std::unique_ptr<platform::Descriptor, void (*)(platform::Descriptor*)> access(
            platform::convertDescriptor(sharedAccess), platform::freeDescriptor);
        if (!access)
            throw std::runtime_error("Conversion of the security descriptor failed");

        hMem = platform::openMapping(controlBlockName);
        if (hMem == nullptr) {
            hMem = platform::createMapping(controlBlockName, sizeof(ControlBlock), access.get());
            if (hMem == nullptr)
                throw std::runtime_error("CreateFileMapping for SHARED_MEM failed");
            created = true;
        }
        hHrtf = platform::openMapping(hrtfShareName);
        if (hHrtf == nullptr) {
            hHrtf = platform::createMapping(hrtfShareName, hrtfShareBytes, access.get());
            if (hHrtf == nullptr)
                throw std::runtime_error("CreateFileMapping for SHARED_HRTF failed");
        }

        block = static_cast<ControlBlock*>(platform::mapView(hMem, sizeof(ControlBlock)));
        if (block == nullptr)
            throw std::runtime_error("MapViewOfFile SHARED_MEM failed");
        void* share = platform::mapView(hHrtf, hrtfShareBytes);
        if (share == nullptr)
            throw std::runtime_error("MapViewOfFile SHARED_HRTF failed");

        {
            const std::lock_guard guard(lock);
            snapshot.hrtfData = static_cast<const float*>(share);
            snapshot.blockSequence = 0; // this handler's thread has not refreshed yet
            if (block->layoutVersion == version || !created) {
                seen = read(block->sequence, std::memory_order_acquire);
                refreshSnapshot(*block);
            } else {
                std::memset(block, 0, sizeof(ControlBlock));
                block->layoutVersion = version;
                std::memset(share, 0, hrtfShareBytes);
            }
        }

        hEvent = platform::createEvent(controlEventName, access.get());
        if (hEvent == nullptr)
            throw std::runtime_error("CreateEvent failed");
    }
    hStop = platform::createEvent(nullptr, nullptr);
    if (hStop == nullptr)
        throw std::runtime_error("CreateEvent failed");
    return created;
}

void SettingsHandler::runMemoryThread() noexcept
{
    followBlock();
    if (handedOver.exchange(true))
        close();
}

// The memory thread.
void SettingsHandler::followBlock() noexcept
{
    while (running) {
        if (platform::waitForEither(hEvent, hStop) != 0)
            return;
        platform::resetEvent(hEvent);
        if (!running) {
            platform::setEvent(hEvent); // it may have been for the next handler
            return;
        }
        // Read before the settings: an update that comes in between changes it once more.
        const auto sequence = read(block->sequence, std::memory_order_acquire);
        if (sequence != seen) {
            const std::lock_guard guard(lock);
            if (!running)
                return;
            seen = sequence;
            refreshSnapshot(*block);
            snapshot.blockSequence = sequence;
        }
    }
}

void SettingsHandler::poll(SettingsRecord& record) noexcept
{
    if (read(snapshot.generation) <= record.generation || !lock.try_lock())
        return;
    record = snapshot; // with `applied` 0: the path finds a new record
    lock.unlock();
}

void SettingsHandler::writeActiveFormat(std::uint32_t channelMask, float framesPerSecond) noexcept
{
    write(block->activeChannelMask, channelMask);
    write(block->activeFramesPerSecond, framesPerSecond);
}

void SettingsHandler::writeLevels(const float* levels) noexcept
{
    for (auto& level : block->levels)
        write(level, *levels++);
}

void SettingsHandler::writeIdleLevels() noexcept
{
    for (auto& level : block->levels)
        write(level, idleLevel);
}

bool SettingsHandler::keptValuesAreUnreadable() noexcept
{
    platform::RegistryKey key = nullptr;
    const auto result = platform::openKey(platform::rootKey(platform::RootKey::currentUser), settingsKey, keyRead, key);
    if (result == 0)
        platform::closeKey(key);
    return result != 0 && result != notFound;
}

// A value that can't be read counts as 0: off, or flat. Fields of 8 bits take a value's low ones.
void SettingsHandler::load() noexcept
{
    platform::RegistryKey key = nullptr;
    if (platform::openKey(platform::rootKey(platform::RootKey::currentUser), settingsKey, keyRead, key) != 0)
        return;
    const std::lock_guard guard(lock);
    forEachKeptValue(snapshot, [key](const char* name, auto& field) {
        std::uint32_t value = 0;
        std::uint32_t bytes = sizeof value;
        const bool found = platform::queryValue(key, name, &value, bytes) == 0;
        field = static_cast<std::remove_reference_t<decltype(field)>>(found ? value : 0);
    });
    platform::closeKey(key);
    copySettings(snapshot, *block);
}

// What the block holds and the memory thread has not taken over yet is lost.
void SettingsHandler::save() noexcept
{
    platform::RegistryKey key = nullptr;
    if (platform::createKey(platform::rootKey(platform::RootKey::currentUser), settingsKey, keyWrite, key) != 0)
        return;
    const std::lock_guard guard(lock);
    forEachKeptValue(snapshot, [key](const char* name, const auto& field) {
        static_cast<void>(platform::setNumber(key, name, static_cast<std::uint32_t>(field)));
    });
    platform::closeKey(key);
}

} // namespace quorel
