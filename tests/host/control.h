// The control application's side of the shared block, for as long as an effect object holds the block open.
#pragma once

#include "tests/host/engine.h"

#include "platform/sharing.h"
#include "settings/control_block.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace quorel {

class Control {
public:
    Control()
        : mapping(platform::openMapping(controlBlockName)),
          event(platform::openEvent(controlEventName)),
          block(mapping != nullptr ? static_cast<ControlBlock*>(platform::mapView(mapping, sizeof(ControlBlock))) : nullptr)
    {
        EXPECT_NE(block, nullptr);
        EXPECT_NE(event, nullptr);
    }
    ~Control()
    {
        platform::unmapView(block, sizeof(ControlBlock));
        platform::closeHandle(event);
        platform::closeHandle(mapping);
    }
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

    ControlBlock& operator*() const { return *block; }
    ControlBlock* operator->() const { return block; }

    // Announces new settings. They are on their way when this returns.
    void send(const SettingsRecord& settings)
    {
        copySettings(settings, *block);
        static std::uint32_t last = 0; // the snapshot may still know those of blocks that are gone
        block->sequence = ++last;
        EXPECT_TRUE(platform::setEvent(event));
    }

    // Sends new settings and lets silent blocks pass until the locked effect has them; false when they don't come. What is
    // sent before the memory thread has begun to run counts as known to it, so they are sent again now and then.
    bool deliver(const SettingsRecord& settings, Effect& effect)
    {
        for (int i = 0; i < 10000; ++i) {
            if (i % 100 == 0)
                send(settings);
            effect.process(nullptr, nullptr, 0, BUFFER_SILENT);
            if (EffectObjectState::record(*effect.self).blockSequence == block->sequence)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

private:
    platform::Handle mapping;
    platform::Handle event;
    ControlBlock* block;
};

} // namespace quorel
