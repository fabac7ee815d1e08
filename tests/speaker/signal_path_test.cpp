// SPDX-License-Identifier: MIT
// The front as a host uses it, over the speaker paths. With the surround effect off a path is the stereo down-mix; these
// tests keep below the limiter and give it two blocks to fade there.
#include "core/signal_path.h"

#include "core/dispatch.h"
#include "speaker/speaker_path.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

namespace quorel {
namespace {

constexpr std::uint32_t sevenPointOne = 0x63F;
constexpr std::array<std::uint32_t, 9> masks = {0, 0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x60F | 0x10, sevenPointOne};

SignalPath speakerPath(std::int32_t channels, std::uint32_t mask, std::uint32_t maxFrames = 480, std::uint32_t rate = 48000)
{
    return SignalPath(SignalPath::Speaker{}, channels, mask, maxFrames, rate);
}

std::string refusal(std::int32_t channels, std::uint32_t mask)
{
    try {
        speakerPath(channels, mask);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "accepted";
}

std::string maskText(std::size_t n)
{
    return "quorel::SpeakerPath<" + std::to_string(n) +
           ",float>::SpeakerPath: number of active channels in channelMask does not match CH_IN";
}

// Sines of different frequencies in the channels, at a level that stays below the limiter in any mix.
std::vector<float> sines(std::size_t channels, std::size_t frames, std::size_t start = 0)
{
    std::vector<float> samples(channels * frames);
    for (std::size_t i = 0; i < frames; ++i)
        for (std::size_t c = 0; c < channels; ++c) {
            const auto angle = 2.0 * std::numbers::pi * 300.0 * static_cast<double>((c + 1) * (start + i)) / 48000.0;
            samples[i * channels + c] = static_cast<float>(0.1 * std::sin(angle));
        }
    return samples;
}

// The third block of a path that is switched to the down-mix, in frames of eight slots; `in` receives its input.
std::vector<float> settledDownmix(std::int32_t channels, std::uint32_t mask, std::vector<float>& in)
{
    SignalPath path = speakerPath(channels, mask);
    std::vector<float> out(480 * 8, 9.0F);
    for (std::size_t block = 0; block < 3; ++block) {
        in = sines(static_cast<std::size_t>(channels), 480, block * 480);
        EXPECT_EQ(path->process(in.data(), 480, out.data(), 480), 480U);
    }
    return out;
}

// Compares a settled block with 0.8 times the down-mix by the given gains.
void expectDownmix(std::int32_t channels, std::uint32_t mask, const std::vector<double>& left, const std::vector<double>& right)
{
    std::vector<float> in;
    const std::vector<float> out = settledDownmix(channels, mask, in);
    const auto n = static_cast<std::size_t>(channels);
    for (std::size_t i = 0; i < 480; ++i) {
        double wanted[2] = {};
        for (std::size_t c = 0; c < n; ++c) {
            wanted[0] += 0.8 * left[c] * static_cast<double>(in[i * n + c]);
            wanted[1] += 0.8 * right[c] * static_cast<double>(in[i * n + c]);
        }
        // Single-precision gains and sums of values below 1: some 20 roundings.
        ASSERT_NEAR(static_cast<double>(out[i * 8]), wanted[0], 20 * 0x1p-24) << "frame " << i;
        ASSERT_NEAR(static_cast<double>(out[i * 8 + 1]), wanted[1], 20 * 0x1p-24) << "frame " << i;
    }
}

TEST(SignalPath, RefusesZeroAndNineChannels)
{
    EXPECT_EQ(refusal(0, sevenPointOne), "SignalPath: Illegal channel count");
    EXPECT_EQ(refusal(9, sevenPointOne), "SignalPath: Illegal channel count");
    EXPECT_EQ(refusal(-1, sevenPointOne), "SignalPath: Illegal channel count");
}

TEST(SignalPath, AFailedBuildLeavesThePreviousPathInPlace)
{
    SignalPath path = speakerPath(2, 0x3);
    const auto* before = path.get();
    EXPECT_THROW(path = speakerPath(0, 0x3), std::invalid_argument);
    EXPECT_THROW(path = speakerPath(9, 0x3), std::invalid_argument);
    EXPECT_THROW(path = speakerPath(2, 0x7), std::invalid_argument);
    EXPECT_EQ(path.get(), before);
}

template <std::size_t N>
void expectInstantiation()
{
    const SignalPath path = speakerPath(static_cast<std::int32_t>(N), masks[N]);
    using Expected = SignalPath::Dispatch<SpeakerPath<N, float>>;
    EXPECT_NE(dynamic_cast<Expected*>(path.get()), nullptr) << N << " channels";
}

TEST(SignalPath, OneToEightChannelsGiveTheInstantiationOfThatCount)
{
    expectInstantiation<1>();
    expectInstantiation<2>();
    expectInstantiation<3>();
    expectInstantiation<4>();
    expectInstantiation<5>();
    expectInstantiation<6>();
    expectInstantiation<7>();
    expectInstantiation<8>();
}

TEST(SignalPath, MovesAndLeavesNullBehind)
{
    SignalPath path = speakerPath(2, 0x3);
    const auto* before = path.get();
    const SignalPath moved = std::move(path);
    EXPECT_EQ(moved.get(), before);
    EXPECT_EQ(path.get(), nullptr); // NOLINT(bugprone-use-after-move)
    static_assert(!std::is_copy_constructible_v<SignalPath>);
}

TEST(SignalPath, ASpeakerPathHasNoLevels)
{
    for (std::int32_t channels = 1; channels <= 8; ++channels)
        EXPECT_EQ(speakerPath(channels, masks[static_cast<std::size_t>(channels)])->levels(), nullptr);
}

TEST(SignalPath, ProcessReturnsTheOutputFramesAsPassedIn)
{
    SignalPath path = speakerPath(2, 0x3);
    std::vector<float> in = sines(2, 100);
    std::vector<float> out(300 * 8);
    EXPECT_EQ(path->process(in.data(), 100, out.data(), 300), 300U);
}

TEST(SignalPath, TheRecordStaysWhereItIsAndStartsUnapplied)
{
    SignalPath path = speakerPath(2, 0x3);
    SettingsRecord* record = path->settings();
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->applied, 0);
    EXPECT_EQ(record->generation, 0U);
    std::vector<float> in = sines(2, 100);
    std::vector<float> out(100 * 8);
    path->process(in.data(), 100, out.data(), 100);
    EXPECT_EQ(path->settings(), record);
    EXPECT_EQ(record->applied, 1);
    const SignalPath moved = std::move(path);
    EXPECT_EQ(moved->settings(), record);
}

TEST(SpeakerFrame, AtAnotherRateABlockComesOutAsItWentIn)
{
    for (std::int32_t channels = 1; channels <= 8; ++channels) {
        SignalPath path = speakerPath(channels, masks[static_cast<std::size_t>(channels)], 480, 44100);
        std::vector<float> in = sines(static_cast<std::size_t>(channels), 100);
        std::vector<float> out(100 * 8, 9.0F);
        EXPECT_EQ(path->process(in.data(), 100, out.data(), 100), 100U);
        for (std::size_t i = 0; i < out.size(); ++i)
            ASSERT_EQ(out[i], i < in.size() ? in[i] : 9.0F) << "the copy covers one float for each channel and frame";
        EXPECT_EQ(path->settings()->applied, 1) << "the record is translated all the same";
    }
}

TEST(SpeakerFrame, InPlaceAtAnotherRateNothingIsWritten)
{
    SignalPath path = speakerPath(2, 0x3, 480, 44100);
    std::vector<float> samples = {0.5F, std::nanf(""), 0.25F, 1.0F};
    path->process(samples.data(), 2, samples.data(), 2);
    EXPECT_EQ(samples[0], 0.5F);
    EXPECT_TRUE(std::isnan(samples[1]));
    path->process(nullptr, 5, nullptr, 5);
}

TEST(SpeakerFrame, AtAnotherRateAnEmptyBlockFailsUnlessInPlace)
{
    // The copy's kernel takes no empty block; in place there is no copy.
    SignalPath path = speakerPath(2, 0x3, 480, 44100);
    std::vector<float> in(2);
    std::vector<float> out(8, 9.0F);
    try {
        path->process(in.data(), 0, out.data(), 0);
        FAIL() << "an empty copy was accepted";
    } catch (const ipps::Error& error) {
        EXPECT_EQ(error.status, ippStsSizeErr);
    }
    EXPECT_EQ(path->settings()->applied, 1) << "the record is translated before";
    EXPECT_EQ(out, std::vector<float>(8, 9.0F));
    EXPECT_EQ(path->process(in.data(), 0, in.data(), 7), 7U);
    EXPECT_EQ(path->process(nullptr, 0, nullptr, 0), 0U);
}

TEST(SpeakerFrame, AtAnotherRateAnOutputTooSmallIsRefused)
{
    SignalPath path = speakerPath(2, 0x3, 480, 44100);
    std::vector<float> in = sines(2, 100);
    std::vector<float> out(100 * 8);
    try {
        path->process(in.data(), 100, out.data(), 99);
        FAIL() << "an output of 99 frames was accepted";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "PassThrough: out buffer too small");
    }
}

TEST(SpeakerFrame, AnOutputTooSmallIsRefused)
{
    SignalPath path = speakerPath(2, 0x3);
    std::vector<float> in = sines(2, 100);
    std::vector<float> out(100 * 8);
    try {
        path->process(in.data(), 100, out.data(), 99);
        FAIL() << "an output of 99 frames was accepted";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "PassThrough: out buffer too small");
    }
}

TEST(SpeakerFrame, SlotsTwoToSevenAreZeroForEveryChannelCount)
{
    for (std::int32_t channels = 1; channels <= 8; ++channels) {
        std::vector<float> in;
        const std::vector<float> out = settledDownmix(channels, masks[static_cast<std::size_t>(channels)], in);
        for (std::size_t frame = 0; frame < out.size(); frame += 8)
            for (std::size_t slot = 2; slot < 8; ++slot)
                ASSERT_EQ(out[frame + slot], 0.0F);
    }
}

TEST(SpeakerFrame, StereoPutsChannel0LeftAndChannel1Right)
{
    expectDownmix(2, 0x3, {1, 0}, {0, 1});
}

TEST(SpeakerFrame, MonoIsAttenuatedBySixDecibels)
{
    expectDownmix(1, 0x4, {0.5}, {0.5});
}

TEST(SpeakerFrame, FivePointOneWithSideSpeakersKeepsTheMasksOrder)
{
    expectDownmix(6, 0x60F, {1, 0, 0.5, 0.707, 0.707, 0}, {0, 1, 0.5, 0.707, 0, 0.707});
}

TEST(SpeakerFrame, FivePointOneWithBackSpeakersKeepsTheMasksOrder)
{
    expectDownmix(6, 0x3F, {1, 0, 0.5, 0.707, 0.707, 0}, {0, 1, 0.5, 0.707, 0, 0.707});
}

TEST(SpeakerFrame, SevenPointOneUsesAllEightSpeakers)
{
    expectDownmix(8, sevenPointOne, {1, 0, 0.5, 0.707, 0.707, 0, 0.707, 0}, {0, 1, 0.5, 0.707, 0, 0.707, 0, 0.707});
}

TEST(SpeakerFrame, ABitOutsideTheTableIsNeitherCountedNorAnError)
{
    expectDownmix(2, 0x43, {1, 0}, {0, 1});
    expectDownmix(2, 0xFFFFF9C0 | 0x3, {1, 0}, {0, 1});
}

TEST(SpeakerFrame, AMaskOfAnotherNumberOfSpeakersIsRefusedByName)
{
    EXPECT_EQ(refusal(2, 0x1), maskText(2));
    EXPECT_EQ(refusal(2, 0xFF), maskText(2));
    EXPECT_EQ(refusal(1, 0), maskText(1));
    for (std::int32_t channels = 1; channels <= 7; ++channels)
        EXPECT_EQ(refusal(channels, sevenPointOne), maskText(static_cast<std::size_t>(channels)));
    EXPECT_EQ(refusal(8, 0x3F), maskText(8));
}

TEST(SpeakerFrame, AMaskIsRefusedBeforeAnythingOfTheRoomIs)
{
    const auto refusalOf = [](std::uint32_t mask, std::uint32_t maxFrames) -> std::string {
        try {
            speakerPath(2, mask, maxFrames);
        } catch (const std::exception& error) {
            return error.what();
        }
        return "accepted";
    };
    EXPECT_EQ(refusalOf(0x3, 1073), "DelayLine: Length of delayLineBuffer is too short");
    EXPECT_EQ(refusalOf(0x1, 1073), maskText(2)) << "the mask is counted before the room is built";
    EXPECT_EQ(refusalOf(0x7, 1073), maskText(2));
    EXPECT_EQ(refusalOf(0x1, 0), "Buffer not initialized") << "and behind the buffers";
}

} // namespace
} // namespace quorel
