// SPDX-License-Identifier: MIT
#include "live/path_change.h"

#include "tests/live/steered.h"

#include <atomic>
#include <cmath>
#include <numbers>
#include <random>
#include <thread>

namespace quorel {
namespace {

// The settings are all zero: behind its first block a path makes a stereo down-mix of 0.8 of front left and right, so that a
// steady input of 0.1 comes out as a steady 0.08 and shows every fade as it is.
constexpr float steady = 0.1F;

class PathChanges : public Steered {
protected:
    PathChanges()
    {
        change.begin(streamOf(speaker, {480, 0}));
        call(480);
    }

    void serve()
    {
        change.serve([this](BlockPlan plan) {
            ++built;
            return streamOf(speaker, plan);
        });
    }

    // What comes out left for n steady frames.
    std::vector<float> call(std::uint32_t n, bool varying = false)
    {
        Rows in(8, n);
        in.rows[0].assign(n, steady);
        Rows out(2, n, -1.0F);
        change.process(in.in().data(), out.out().data(), n, varying);
        return out.rows[0];
    }

    // What comes out left of a stream of this plan that nobody fades, for n steady frames.
    std::vector<float> unfaded(BlockPlan plan, std::uint32_t n)
    {
        Rows in(8, n);
        in.rows[0].assign(n, steady);
        Rows out(2, n);
        streamOf(speaker, plan)->process(in.in().data(), out.out().data(), n);
        return out.rows[0];
    }

    static double rise(double frame, double length) { return 0.5 - 0.5 * std::cos(std::numbers::pi * frame / length); }

    int woken = 0;
    int built = 0;
    PathChange change{speakerPlan, status, [](void* count) { ++*static_cast<int*>(count); }, &woken};
};

constexpr double level = 0.08;
constexpr double rounding = 0x1p-25; // a few roundings of numbers below 0.1, half a last place of each 2^-29

TEST_F(PathChanges, KeepThePathWhereItsBlockDividesTheQuantum)
{
    call(480);
    call(960);
    EXPECT_EQ(woken, 0);
    EXPECT_EQ(status.changes, 0U);
    EXPECT_EQ(status.frames, 480U + 480U + 960U);
    EXPECT_NEAR(call(1920).back(), level, rounding);
}

TEST_F(PathChanges, FadeTheOldSoundOutOverItsLastCall)
{
    call(480);
    const auto last = call(512); // a block of the old path, and 32 frames of one filled up
    for (std::size_t i = 0; i < 512; ++i)
        ASSERT_NEAR(last[i], level * (1 - rise(static_cast<double>(i + 1), 512)), rounding) << i;
    EXPECT_EQ(last.back(), 0.0F);
    EXPECT_EQ(status.changes, 1U);
    EXPECT_EQ(woken, 1);
}

TEST_F(PathChanges, AreSilentUntilTheNewPathStandsAndAskForItOnce)
{
    call(480);
    call(512);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(call(512), std::vector<float>(512));
    EXPECT_EQ(woken, 1);
    EXPECT_EQ(status.lostFrames, 3 * 512U);
}

TEST_F(PathChanges, FadeTheNewSoundInOverTenMilliseconds)
{
    call(480);
    call(512);
    serve();
    EXPECT_EQ(built, 1);
    const auto next = call(512);
    const auto whole = unfaded({512, 0}, 512);
    for (std::size_t i = 0; i < 512; ++i)
        ASSERT_NEAR(next[i], whole[i] * (i < 480 ? rise(static_cast<double>(i), 480) : 1), rounding) << i;
    EXPECT_NEAR(call(512).back(), level, rounding);
    EXPECT_EQ(status.block, 512U);
    EXPECT_EQ(status.delay, 0U);
    EXPECT_EQ(status.lostFrames, 0U);
}

TEST_F(PathChanges, FadeInBehindTheSilenceOfAGatheredQuantum)
{
    call(480);
    call(857); // a prime number: gathered, 255 frames late
    serve();
    auto sound = call(857);
    const auto more = call(857);
    sound.insert(sound.end(), more.begin(), more.end());
    const auto whole = unfaded({256, 0}, 1280);
    for (std::size_t i = 0; i < 255; ++i)
        ASSERT_EQ(sound[i], 0.0F) << i;
    for (std::size_t i = 0; i < 1280; ++i)
        ASSERT_NEAR(sound[255 + i], whole[i] * (i < 480 ? rise(static_cast<double>(i), 480) : 1), rounding) << i;
    EXPECT_EQ(status.delay, 255U);
}

TEST_F(PathChanges, MakeNoStepAboveSixtyDecibelsBelowFullScale)
{
    std::vector<float> sound;
    const auto add = [&](const std::vector<float>& part) { sound.insert(sound.end(), part.begin(), part.end()); };
    add(call(480));
    for (const std::uint32_t quantum : {512U, 240U, 256U, 441U, 1024U, 480U}) {
        add(call(quantum));
        serve();
        for (int i = 0; i < 4; ++i)
            add(call(quantum));
    }
    for (std::size_t i = 1; i < sound.size(); ++i)
        ASSERT_LT(std::abs(sound[i] - sound[i - 1]), 0.001F) << i;
}

TEST_F(PathChanges, AskAgainWhereTheQuantumChangedOnceMore)
{
    call(480);
    call(512);
    call(441);
    serve(); // for 512
    call(441);
    EXPECT_EQ(woken, 2);
    serve();
    call(441);
    EXPECT_EQ(status.block, 441U);
    EXPECT_EQ(built, 2);
}

TEST_F(PathChanges, GatherCallsThatDifferWithoutAnotherChange)
{
    call(480);
    call(470, true);
    serve();
    for (const std::uint32_t n : {470U, 471U, 470U, 1U, 800U})
        call(n, true);
    EXPECT_EQ(status.changes, 1U);
    EXPECT_EQ(status.delay, 255U);
    EXPECT_EQ(built, 1);
}

TEST_F(PathChanges, LeaveGatheringWhereThereIsASlice)
{
    call(857);
    serve();
    call(857);
    call(512); // a multiple of the 256 frames in force
    EXPECT_EQ(status.changes, 1U);
    call(441);
    serve();
    call(441);
    EXPECT_EQ(status.changes, 2U);
    EXPECT_EQ(status.delay, 0U);
}

TEST_F(PathChanges, GiveTheNewPathTheSettingsInForce)
{
    call(480);
    set([](SettingsRecord& record) { record.Settings = 1; });
    call(512);
    serve();
    call(512);
    call(512);
    // The surround effect is on: its front left response reaches the right ear too.
    Rows in(8, 512);
    in.rows[0][0] = 0.5F;
    Rows out(2, 512);
    change.process(in.in().data(), out.out().data(), 512, false);
    EXPECT_GT(*std::max_element(out.rows[1].begin(), out.rows[1].end()), 0.01F);
}

// A delivered set that lets nothing through shows that it is in force.
TEST_F(PathChanges, GiveTheNewPathTheDeliveredResponses)
{
    const auto loudest = [this](std::uint32_t quantum) {
        call(quantum);
        serve();
        for (int i = 0; i < 4; ++i)
            call(quantum);
        const auto sound = call(quantum);
        return *std::max_element(sound.begin(), sound.end());
    };
    set([](SettingsRecord& record) { record.Settings = 1; });
    EXPECT_GT(loudest(512), 0.01F);
    std::fill_n(control.share, 2 * 8 * 1024, 0.0F); // two responses of 512 bins for each of eight channels
    set([](SettingsRecord& record) {
        record.Settings = 1;
        record.hrtfId = 1;
        record.hrtfChannels = 8;
        record.hrtfLength = 1024;
    });
    EXPECT_EQ(loudest(512), 0.0F);
    EXPECT_EQ(loudest(480), 0.0F);
    EXPECT_EQ(loudest(857), 0.0F);
    EXPECT_EQ(status.changes, 3U);
    EXPECT_EQ(status.refused, 0U);
}

TEST_F(PathChanges, KeepTheRequestWhereBuildingFails)
{
    call(480);
    call(512);
    EXPECT_THROW(change.serve([](BlockPlan) -> std::unique_ptr<EffectStream> { throw std::bad_alloc(); }), std::bad_alloc);
    serve();
    call(512);
    EXPECT_EQ(status.block, 512U);
}

TEST_F(PathChanges, StartAnewWithNothingLeftFromBefore)
{
    call(480);
    call(512); // asked for a path of 512
    change.begin(streamOf(speaker, speakerPlan(480, false)));
    serve();
    EXPECT_EQ(built, 0);
    call(480); // its first block
    EXPECT_NEAR(call(480).back(), level, rounding);
    call(441); // asks again
    serve();
    call(441);
    EXPECT_EQ(status.block, 441U);

    call(512);
    serve(); // the path of 512 has arrived
    change.begin(streamOf(speaker, speakerPlan(480, false)));
    call(480);
    EXPECT_EQ(status.block, 480U);
}

TEST_F(PathChanges, ComeThroughAnyQuantaWhileAnotherThreadBuilds)
{
    std::atomic<bool> running = true;
    std::thread builder([&] {
        while (running) {
            serve();
            std::this_thread::yield();
        }
    });
    constexpr std::uint32_t quanta[] = {32, 48, 64, 128, 256, 441, 480, 512, 857, 1024, 2048};
    std::minstd_rand random(1);
    for (int round = 0; round < 300; ++round) {
        const std::uint32_t quantum = quanta[random() % std::size(quanta)];
        for (std::uint32_t i = 0; i < random() % 8; ++i)
            for (const float y : call(quantum)) {
                ASSERT_LT(std::abs(y), 0.5F);
            }
    }
    running = false;
    builder.join();
    serve();
    for (int i = 0; i < 3; ++i) {
        call(480);
        serve();
    }
    EXPECT_NEAR(call(480).back(), level, rounding);
}

} // namespace
} // namespace quorel
