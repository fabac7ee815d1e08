// SPDX-License-Identifier: MIT
// The other process's side of the contract in settings/control_block.h, as plainly as it is told there.
#pragma once

#include "platform/sharing.h"
#include "settings/control_block.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

namespace quorel {

class ControlApplication {
public:
    // Opens the block, or makes it before an effect does, and whatever else is there already.
    ControlApplication() : mapping(platform::openMapping(controlBlockName))
    {
        if (mapping == nullptr) {
            auto* access = platform::convertDescriptor("D:(A;;GA;;;BU)");
            mapping = platform::createMapping(controlBlockName, sizeof(ControlBlock), access);
            platform::freeDescriptor(access);
        }
        block = static_cast<ControlBlock*>(platform::mapView(mapping, sizeof(ControlBlock)));
        event = platform::openEvent(controlEventName);
        shareMapping = platform::openMapping(hrtfShareName);
        if (shareMapping != nullptr)
            share = static_cast<float*>(platform::mapView(shareMapping, hrtfShareBytes));
        if (block == nullptr)
            throw std::runtime_error("ControlApplication: no block");
    }

    ~ControlApplication()
    {
        platform::unmapView(block, sizeof(ControlBlock));
        platform::closeHandle(mapping);
        if (event != nullptr)
            platform::closeHandle(event);
        if (share != nullptr)
            platform::unmapView(share, hrtfShareBytes);
        if (shareMapping != nullptr)
            platform::closeHandle(shareMapping);
    }

    ControlApplication(const ControlApplication&) = delete;
    ControlApplication& operator=(const ControlApplication&) = delete;

    void write(const SettingsRecord& settings) { copySettings(settings, *block); }

    void changeSequence(std::uint32_t to) { std::atomic_ref(block->sequence).store(to, std::memory_order_release); }

    void signal() { platform::setEvent(event); }

    void update(const SettingsRecord& settings, std::uint32_t sequence)
    {
        write(settings);
        changeSequence(sequence);
        signal();
    }

    // Counts on from the block's sequence, which is returned. The block of a first effect starts at 0.
    std::uint32_t update(const SettingsRecord& settings)
    {
        const auto next = std::atomic_ref(block->sequence).load(std::memory_order_relaxed) + 1;
        update(settings, next);
        return next;
    }

    void writeShare(const std::vector<float>& responses)
    {
        std::memcpy(share, responses.data(), responses.size() * sizeof(float));
    }

    ControlBlock* block = nullptr;
    float* share = nullptr;

private:
    platform::Handle mapping = nullptr;
    platform::Handle event = nullptr;
    platform::Handle shareMapping = nullptr;
};

// True when an effect has opened everything that a control application needs.
inline bool effectIsThere()
{
    const auto event = platform::openEvent(controlEventName); // the last that an effect makes
    if (event != nullptr)
        platform::closeHandle(event);
    return event != nullptr;
}

// True as soon as `reached` is; false when it is not within a minute.
inline bool eventually(const std::function<bool()>& reached)
{
    for (int i = 0; i < 60000; ++i) {
        if (reached())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

} // namespace quorel
