// SPDX-License-Identifier: MIT
// A set of head-related responses on its way from another process into a running path, over the system's own shared memory.
#include "core/signal_path.h"
#include "settings/settings_handler.h"

#include "tests/support/control_application.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace quorel {
namespace {

constexpr std::uint32_t frames = 480;
constexpr std::size_t response = 1024; // floats

// A set whose responses are single taps: left at `tap`, right at `tap + 20`, with a gain for each channel. In Pack form the
// spectrum of a tap is a cosine and a sine.
std::vector<float> setOfTaps(std::size_t channels, std::size_t tap)
{
    std::vector<float> set;
    for (const auto at : {tap, tap + 20}) {
        for (std::size_t c = 0; c < channels; ++c) {
            const double gain = 0.1 + 0.05 * static_cast<double>(c);
            const auto angle = [at](std::size_t bin) { return -2.0 * 3.14159265358979 * static_cast<double>(bin * at) / 1024.0; };
            set.push_back(static_cast<float>(gain));
            for (std::size_t bin = 1; bin < 512; ++bin) {
                set.push_back(static_cast<float>(gain * std::cos(angle(bin))));
                set.push_back(static_cast<float>(gain * std::sin(angle(bin))));
            }
            set.push_back(static_cast<float>(gain * std::cos(angle(512))));
        }
    }
    return set;
}

// A stream of noise through a path. Two of them hear the same noise.
class Stream {
public:
    explicit Stream(std::int32_t channels = 8, std::uint32_t mask = 0x63F, std::uint32_t rate = 48000)
        : channels(static_cast<std::size_t>(channels)), path(SignalPath::Speaker{}, channels, mask, frames, rate)
    {
    }

    SettingsRecord& record() { return *path->settings(); }

    std::vector<float> block()
    {
        std::vector<float> in(frames * channels);
        for (auto& x : in)
            x = static_cast<float>(static_cast<std::int32_t>(noise())) * 0x1p-34F;
        std::vector<float> out(frames * 8);
        path->process(in.data(), frames, out.data(), frames);
        return out;
    }

    // The failure of the next block; empty when there is none.
    std::string failure()
    {
        try {
            block();
        } catch (const std::exception& refused) {
            return refused.what();
        }
        return {};
    }

private:
    std::size_t channels;
    SignalPath path;
    std::mt19937 noise{1};
};

SettingsRecord surround()
{
    SettingsRecord settings;
    settings.Settings = 1;
    return settings;
}

SettingsRecord delivery(std::uint32_t id, std::uint32_t channels = 8, std::uint32_t length = 1024)
{
    auto settings = surround();
    settings.hrtfId = id;
    settings.hrtfChannels = channels;
    settings.hrtfLength = length;
    return settings;
}

class HrtfShareTest : public testing::Test {
protected:
    HrtfShareTest() { update(surround()); }

    // Writes the settings and tells whether a poll finds them in time.
    bool arrives(const SettingsRecord& settings, int milliseconds)
    {
        const auto sequence = control->update(settings);
        SettingsRecord record;
        for (; milliseconds > 0 && record.blockSequence != sequence; --milliseconds) {
            handler->poll(record);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return record.blockSequence == sequence;
    }

    void update(const SettingsRecord& settings) { EXPECT_TRUE(arrives(settings, 60000)); }

    // One block as an audio engine runs it.
    std::vector<float> block(Stream& stream)
    {
        handler->poll(stream.record());
        return stream.block();
    }

    std::string failure(Stream& stream)
    {
        handler->poll(stream.record());
        return stream.failure();
    }

    TemporaryHome home;
    std::shared_ptr<SettingsHandler> handler = SettingsHandler::instance(SettingsHandler::layoutVersion);
    std::optional<ControlApplication> control{std::in_place};
};

// What a path gives that gets its settings by hand, from this process's own memory.
class Reference : public Stream {
public:
    using Stream::Stream;

    void give(const SettingsRecord& settings, const std::vector<float>& set = {})
    {
        auto& own = record();
        const auto sequence = own.blockSequence + 1;
        own = settings;
        own.hrtfData = set.data();
        own.blockSequence = sequence;
    }
};

TEST_F(HrtfShareTest, WithoutAnIdTheBuiltInSetStays)
{
    Stream stream;
    Reference reference;
    control->writeShare(setOfTaps(8, 30));
    update(delivery(0));
    reference.give(surround());
    EXPECT_EQ(block(stream), reference.block());
}

TEST_F(HrtfShareTest, ASetThatArrivesMeanwhileIsInForceAtTheNextBlockWithoutAGap)
{
    Stream stream;
    Reference reference;
    reference.give(surround());
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(block(stream), reference.block());
    const auto set = setOfTaps(8, 30);
    control->writeShare(set);
    update(delivery(7));
    reference.give(delivery(7), set);
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(block(stream), reference.block()) << i;
}

TEST_F(HrtfShareTest, TheSameIdWithNewDataChangesNothing)
{
    Stream stream;
    Reference reference;
    const auto set = setOfTaps(8, 30);
    control->writeShare(set);
    update(delivery(7));
    reference.give(delivery(7), set);
    ASSERT_EQ(block(stream), reference.block());
    control->writeShare(setOfTaps(8, 60));
    update(delivery(7));
    reference.give(delivery(7), set);
    EXPECT_EQ(block(stream), reference.block());
}

TEST_F(HrtfShareTest, APathBuiltAfterASetWasDeliveredTakesItOverOnItsFirstBlock)
{
    const auto set = setOfTaps(8, 30);
    control->writeShare(set);
    update(delivery(7));
    Stream stream;
    Reference reference;
    reference.give(delivery(7), set);
    EXPECT_EQ(block(stream), reference.block());
}

TEST_F(HrtfShareTest, AnotherLengthIsRefusedOnEveryBlockWithTheSizesText)
{
    Stream stream;
    update(delivery(7, 8, 512));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(failure(stream), "quorel::DirectPath<8,float>::set: size must match");
}

TEST_F(HrtfShareTest, APathOfEightRefusesASetForTwoWithTheChannelsText)
{
    Stream stream;
    update(delivery(7, 2));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(failure(stream), "quorel::DirectPath<8,float>::set: channels must match");
}

// Required: the settings are translated before a stream at another rate is copied.
TEST_F(HrtfShareTest, ASetForEightMakesAStereoPathAt96KilohertzRefuseEveryBlock)
{
    Stream stream(2, 0x3, 96000);
    update(delivery(7, 8));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(failure(stream), "quorel::DirectPath<2,float>::set: channels must match");
}

TEST_F(HrtfShareTest, APathThatRefusedASetRecoversWithTheNextRecord)
{
    Stream stream;
    update(delivery(7, 2));
    EXPECT_NE(failure(stream), "");
    const auto set = setOfTaps(8, 30);
    control->writeShare(set);
    update(delivery(8));
    // The refused block gave its input up before it came into the history.
    Reference reference;
    reference.give(delivery(7, 2), set);
    EXPECT_NE(reference.failure(), "");
    reference.give(delivery(8), set);
    EXPECT_EQ(block(stream), reference.block());
}

TEST_F(HrtfShareTest, TheEighthRightResponseEndsExactlyAtTheSharesLastByte)
{
    static_assert(2 * 8 * response * sizeof(float) == hrtfShareBytes);
    // Only that response is not zero: a tap for channel 7, side right, at the right ear.
    auto set = setOfTaps(8, 30);
    std::fill(set.begin(), set.end() - response, 0.0F);
    control->writeShare(set);
    control->share[hrtfShareBytes / 4 - 1] = set.back();
    update(delivery(7));
    Stream stream;
    Reference reference;
    reference.give(delivery(7), set);
    const auto out = block(stream);
    EXPECT_EQ(out, reference.block());
    EXPECT_NE(out[8 * 300 + 1], 0.0F);
}

TEST_F(HrtfShareTest, AfterASetHasBeenTakenOverTheShareMayChange)
{
    const auto set = setOfTaps(8, 30);
    control->writeShare(set);
    update(delivery(7));
    Stream stream;
    Reference reference;
    reference.give(delivery(7), set);
    ASSERT_EQ(block(stream), reference.block());
    control->writeShare(std::vector<float>(hrtfShareBytes / 4, 1e30F));
    EXPECT_EQ(block(stream), reference.block());
}

TEST_F(HrtfShareTest, NothingOfASetIsKeptForTheNextBlockAndShare)
{
    control->writeShare(setOfTaps(8, 30));
    update(delivery(7));
    SettingsRecord record;
    handler->poll(record);
    const auto* view = record.hrtfData;
    control.reset();
    handler.reset();
    EXPECT_EQ(view[hrtfShareBytes / 4 - 1], setOfTaps(8, 30).back()) << "the view stays to the end of the process";

    handler = SettingsHandler::instance(SettingsHandler::layoutVersion);
    handler->poll(record);
    EXPECT_EQ(record.hrtfId, 0U);
    EXPECT_EQ(record.hrtfChannels, 0U);
    EXPECT_EQ(record.Settings, 1) << "a kept value";
}

} // namespace
} // namespace quorel
