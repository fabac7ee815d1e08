// SPDX-License-Identifier: MIT
#include "client/control_client.h"

#include "platform/named_lock.h"
#include "platform/refusal.h"

#include <atomic>
#include <bit>
#include <cstring>
#include <memory>
#include <span>
#include <system_error>

namespace quorel {

namespace {

constexpr const char* lockName = "Global\\QUORELControl"; // among these programs alone: the effect takes no lock
constexpr std::uint32_t patience = 5000;                  // ms

struct CloseHandle {
    void operator()(platform::Handle handle) const noexcept { platform::closeHandle(handle); }
};
using OwnedHandle = std::unique_ptr<platform::Object, CloseHandle>;

// The block is plain memory that other processes use at the same time: each word of it is read and written as a whole.
std::uint32_t readWord(const void* word) noexcept
{
    auto* plain = const_cast<std::uint32_t*>(static_cast<const std::uint32_t*>(word));
    return std::atomic_ref(*plain).load(std::memory_order_relaxed);
}

void writeWord(void* word, std::uint32_t value, std::memory_order order = std::memory_order_relaxed) noexcept
{
    std::atomic_ref(*static_cast<std::uint32_t*>(word)).store(value, order);
}

float readFloat(const float& word) noexcept
{
    return std::bit_cast<float>(readWord(&word));
}

} // namespace

std::string lastRefusalText()
{
    const platform::Refusal refusal = platform::lastRefusal();
    return refusal.path + ": " + std::system_category().message(refusal.error);
}

ControlClient::ControlClient()
{
    platform::keepRefusal({}, 0); // an older one is none of this
    mapping = platform::openMapping(controlBlockName);
    if (mapping == nullptr) {
        const int error = platform::lastRefusal().error;
        if (error == 0 || std::system_category().default_error_condition(error) == std::errc::no_such_file_or_directory)
            throw NoEffect();
        throw std::runtime_error("cannot look for the effect: " + lastRefusalText());
    }
    block = static_cast<ControlBlock*>(platform::mapView(mapping, sizeof(ControlBlock)));
    if (block == nullptr) {
        platform::closeHandle(mapping);
        throw std::runtime_error("the effect's control block is smaller than it has to be");
    }
}

ControlClient::~ControlClient()
{
    platform::unmapView(block, sizeof(ControlBlock));
    platform::closeHandle(mapping);
}

SettingsRecord ControlClient::settings() const
{
    SettingsRecord record;
    auto* to = reinterpret_cast<std::byte*>(&record) + settingsOffset;
    for (std::size_t i = 0; i < settingsBytes; i += sizeof(std::uint32_t)) {
        const std::uint32_t word = readWord(block->settings.data() + i);
        std::memcpy(to + i, &word, sizeof word);
    }
    return record;
}

std::uint32_t ControlClient::activeChannelMask() const
{
    return readWord(&block->activeChannelMask);
}

float ControlClient::activeFramesPerSecond() const
{
    return readFloat(block->activeFramesPerSecond);
}

std::array<float, 9> ControlClient::levels() const
{
    std::array<float, 9> levels{};
    for (std::size_t k = 0; k < levels.size(); ++k)
        levels.at(k) = readFloat(block->levels.at(k));
    return levels;
}

void ControlClient::update(const std::function<void(SettingsRecord&)>& change)
{
    deliver([&](SettingsRecord& record) {
        change(record);
        return std::vector<float>(); // the share stays as it is
    });
}

// In the order that the effect relies on: the share, the settings, `sequence`, the event. Whatever can fail comes before the
// first byte.
void ControlClient::deliver(const std::function<std::vector<float>(SettingsRecord&)>& change)
{
    const std::unique_ptr<platform::Descriptor, void (*)(platform::Descriptor*)> access(platform::convertDescriptor(sharedAccess),
                                                                                        platform::freeDescriptor);
    const platform::NamedLock lock(lockName, access.get(), patience);
    if (!lock)
        throw std::runtime_error("other programs that change the settings give this one no turn: " + lastRefusalText());
    const OwnedHandle event(platform::openEvent(controlEventName));
    if (!event)
        throw NoEffect();

    const SettingsRecord before = settings();
    SettingsRecord after = before;
    const std::vector<float> set = change(after);
    const auto setBytes = std::as_bytes(std::span(set));
    if (setBytes.size() > hrtfShareBytes)
        throw std::runtime_error("the set is larger than the share");

    if (!setBytes.empty()) {
        const OwnedHandle share(platform::openMapping(hrtfShareName));
        void* view = share ? platform::mapView(share.get(), hrtfShareBytes) : nullptr;
        if (view == nullptr)
            throw NoEffect();
        std::memcpy(view, setBytes.data(), setBytes.size());
        platform::unmapView(view, hrtfShareBytes);
    }
    // Another application may have written since: what the change left alone is left alone here too.
    const auto* from = reinterpret_cast<const std::byte*>(&after) + settingsOffset;
    const auto* was = reinterpret_cast<const std::byte*>(&before) + settingsOffset;
    for (std::size_t i = settingsBytes; i > 0;) { // from the end, so that a set's identity comes after its size
        i -= sizeof(std::uint32_t);
        std::uint32_t word = 0;
        std::memcpy(&word, from + i, sizeof word);
        if (std::memcmp(was + i, &word, sizeof word) != 0)
            writeWord(block->settings.data() + i, word, std::memory_order_release);
    }
    writeWord(&block->sequence, readWord(&block->sequence) + 1, std::memory_order_release);
    if (!platform::setEvent(event.get()))
        throw std::runtime_error("the effect could not be signalled");
}

} // namespace quorel
