// SPDX-License-Identifier: MIT
#include "client/control_client.h"

#include "tests/client/one_effect_platform.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <string>
#include <system_error>
#include <vector>

namespace quorel {
namespace {

class ControlClientTest : public testing::Test {
protected:
    ControlClientTest() { oneEffect() = {.block = &block, .share = share.data(), .signalled = {}}; }

    SettingsRecord settings() const
    {
        SettingsRecord record;
        copySettings(block, record);
        return record;
    }

    void writeAsAnother(const std::function<void(SettingsRecord&)>& change)
    {
        SettingsRecord record = settings();
        change(record);
        copySettings(record, block);
    }

    TemporaryHome home; // for the lock
    ControlBlock block{};
    std::array<std::byte, hrtfShareBytes> share{};
};

TEST_F(ControlClientTest, WithoutAnEffectThereIsNoClient)
{
    oneEffect().block = nullptr;
    EXPECT_THROW(ControlClient(), NoEffect);
}

TEST_F(ControlClientTest, WithoutItsEventAnEffectIsGone)
{
    oneEffect().hasEvent = false;
    EXPECT_THROW(ControlClient().update([](SettingsRecord& record) { record.Reverb = 1; }), NoEffect);
    EXPECT_EQ(settings().Reverb, 0U);
    EXPECT_EQ(block.sequence, 0U);
}

// The text of what is thrown.
template <typename Action>
std::string refusalOf(Action action)
{
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return {};
}

TEST_F(ControlClientTest, AnEffectThatCannotBeLookedForIsToldWithItsReason)
{
    oneEffect().refusal = EACCES;
    EXPECT_EQ(refusalOf([] { ControlClient(); }),
              "cannot look for the effect: run/quorel: " + std::system_category().message(EACCES));
    oneEffect().refusal = ENOENT; // nobody has made the folder yet
    EXPECT_THROW(ControlClient(), NoEffect);
}

TEST_F(ControlClientTest, ABlockThatIsTooSmallIsNoEffects)
{
    oneEffect().blockBytes = sizeof(ControlBlock) - 1;
    EXPECT_EQ(refusalOf([] { ControlClient(); }), "the effect's control block is smaller than it has to be");
}

TEST_F(ControlClientTest, ASetThatIsLargerThanTheShareChangesNothing)
{
    ControlClient client;
    EXPECT_EQ(refusalOf([&] {
                  client.deliver([](SettingsRecord& record) {
                      record.Reverb = 1;
                      return std::vector<float>(hrtfShareBytes / sizeof(float) + 1, 1.0F);
                  });
              }),
              "the set is larger than the share");
    EXPECT_EQ(settings().Reverb, 0U);
    EXPECT_EQ(block.sequence, 0U);
    EXPECT_EQ(share, decltype(share)());
}

TEST_F(ControlClientTest, AnEffectThatCannotBeSignalledIsTold)
{
    oneEffect().takesSignals = false;
    EXPECT_EQ(refusalOf([] { ControlClient().update([](SettingsRecord& record) { record.Reverb = 1; }); }),
              "the effect could not be signalled");
}

// An application that takes no turns may write between this client's reading and its writing.
TEST_F(ControlClientTest, AConcurrentChangeOfAnotherWordStays)
{
    writeAsAnother([](SettingsRecord& record) { record.Reverb = 7; });
    ControlClient().update([this](SettingsRecord& record) {
        record.noiseGate = 3;
        writeAsAnother([](SettingsRecord& other) { other.Reverb = 99; });
    });
    EXPECT_EQ(settings().Reverb, 99U);
    EXPECT_EQ(settings().noiseGate, 3U);
}

TEST_F(ControlClientTest, AChangeThatThrowsWritesNothing)
{
    int signals = 0;
    oneEffect().signalled = [&signals] { ++signals; };
    EXPECT_THROW(ControlClient().update([](SettingsRecord& record) {
        record.Reverb = 1;
        throw std::runtime_error("no");
    }),
                 std::runtime_error);
    EXPECT_EQ(settings().Reverb, 0U);
    EXPECT_EQ(block.sequence, 0U);
    EXPECT_EQ(signals, 0);
}

TEST_F(ControlClientTest, EveryUpdateIsCountedAndSignalledOnce)
{
    int signals = 0;
    oneEffect().signalled = [&signals] { ++signals; };
    block.sequence = 0xFFFFFFFF;
    ControlClient().update([](SettingsRecord&) {}); // also one that changes nothing
    EXPECT_EQ(block.sequence, 0U);
    EXPECT_EQ(signals, 1);
}

} // namespace
} // namespace quorel
