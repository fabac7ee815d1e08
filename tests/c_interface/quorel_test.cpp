// SPDX-License-Identifier: MIT
// The C interface gives the sound of the paths behind it, and statuses where they throw.
#include "c_interface/quorel.h"

#include "client/settings_fields.h"
#include "core/signal_path.h"
#include "tests/real_time/allocation_count.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t rate = 48000;
constexpr std::uint32_t frames = 480;
constexpr std::uint32_t mask = 0x63F;

using Effect = std::unique_ptr<quorel_effect, decltype(&quorel_destroy)>;

Effect speaker(std::uint32_t channels = 8, std::uint32_t channelMask = mask, std::uint32_t framesPerSecond = rate)
{
    quorel_effect* effect = nullptr;
    char why[QUOREL_TEXT] = "";
    EXPECT_EQ(quorel_create_speaker(channels, channelMask, frames, framesPerSecond, &effect, why), QUOREL_OK) << why;
    return {effect, quorel_destroy};
}

Effect microphone()
{
    quorel_effect* effect = nullptr;
    EXPECT_EQ(quorel_create_microphone(1, frames, rate, &effect, nullptr), QUOREL_OK);
    return {effect, quorel_destroy};
}

std::vector<float> noise(std::size_t samples, unsigned seed)
{
    std::minstd_rand random(seed);
    std::uniform_real_distribution<float> between(-0.1F, 0.1F);
    std::vector<float> block(samples);
    std::generate(block.begin(), block.end(), [&] { return between(random); });
    return block;
}

TEST(CInterface, ASpeakerEffectSoundsAsItsPath)
{
    const Effect effect = speaker();
    ASSERT_EQ(quorel_output_channels(effect.get()), 8U);
    const quorel::SignalPath path(quorel::SignalPath::Speaker{}, 8, mask, frames, rate);
    std::vector<float> out(frames * 8);
    std::vector<float> expected(frames * 8);
    for (unsigned block = 0; block < 6; ++block) {
        if (block == 1 || block == 3) { // settings from the first block they are for, and later ones too
            const std::int32_t reverb = block == 1 ? 120 : 0;
            EXPECT_EQ(quorel_set(effect.get(), "Settings", 1), QUOREL_OK);
            EXPECT_EQ(quorel_set(effect.get(), "Reverb", reverb), QUOREL_OK);
            path->settings()->Settings = 1;
            path->settings()->Reverb = static_cast<std::uint32_t>(reverb);
            path->settings()->blockSequence += 1;
            path->settings()->applied = 0;
        }
        const std::vector<float> in = noise(frames * 8, block + 1);
        std::vector<float> copy = in;
        EXPECT_EQ(quorel_process(effect.get(), in.data(), out.data(), frames), QUOREL_OK);
        path->process(copy.data(), frames, expected.data(), frames);
        EXPECT_EQ(out, expected) << block;
        EXPECT_EQ(in, noise(frames * 8, block + 1)) << "the input was written to";
    }
}

TEST(CInterface, AMicrophoneEffectSoundsAndMeasuresAsItsPath)
{
    const Effect effect = microphone();
    const quorel::SignalPath path(quorel::SignalPath::Microphone{}, 1, 0, frames, rate);
    EXPECT_EQ(quorel_set(effect.get(), "MicNR", 1), QUOREL_OK);
    EXPECT_EQ(quorel_set(effect.get(), "levelsEnabled", 1), QUOREL_OK);
    path->settings()->MicNR = 1;
    path->settings()->levelsEnabled = 1;
    std::vector<float> out(frames);
    std::vector<float> expected(frames);
    for (unsigned block = 0; block < 20; ++block) {
        std::vector<float> in = noise(frames, block + 1);
        EXPECT_EQ(quorel_process(effect.get(), in.data(), out.data(), frames), QUOREL_OK);
        path->process(in.data(), frames, expected.data(), frames);
        EXPECT_EQ(out, expected) << block;
    }
    std::vector<float> levels(QUOREL_LEVELS);
    EXPECT_EQ(quorel_levels(effect.get(), levels.data()), QUOREL_OK);
    EXPECT_THAT(levels, testing::ElementsAreArray(path->levels(), QUOREL_LEVELS));
}

TEST(CInterface, AtAnotherRateTheOutputHasTheInputsChannels)
{
    const Effect effect = speaker(2, 0x3, 96000);
    ASSERT_EQ(quorel_output_channels(effect.get()), 2U);
    const std::vector<float> in = noise(frames * 2, 1);
    std::vector<float> out(frames * 2);
    EXPECT_EQ(quorel_process(effect.get(), in.data(), out.data(), frames), QUOREL_OK);
    EXPECT_EQ(out, in);
}

TEST(CInterface, EverySettingIsListedAndReadBack)
{
    const Effect effect = speaker();
    std::size_t index = 0;
    for (const quorel::SettingsField& field : quorel::settingsFields()) {
        quorel_setting listed{};
        ASSERT_TRUE(quorel_setting_at(index++, &listed));
        EXPECT_STREQ(listed.name, field.name);
        EXPECT_STREQ(listed.meaning, field.meaning);
        EXPECT_EQ(listed.low, field.low);
        EXPECT_EQ(listed.high, field.high);
        std::int32_t value = -1;
        EXPECT_EQ(quorel_get(effect.get(), field.name, &value), QUOREL_OK);
        EXPECT_EQ(value, 0);
        for (const std::int32_t wanted : {listed.low, listed.high}) {
            EXPECT_EQ(quorel_set(effect.get(), field.name, wanted), QUOREL_OK);
            EXPECT_EQ(quorel_get(effect.get(), field.name, &value), QUOREL_OK);
            EXPECT_EQ(value, wanted) << field.name;
        }
        EXPECT_EQ(quorel_set(effect.get(), field.name, listed.low - 1), QUOREL_BAD_ARGUMENT);
        EXPECT_EQ(quorel_set(effect.get(), field.name, listed.high + 1), QUOREL_BAD_ARGUMENT);
        EXPECT_EQ(quorel_get(effect.get(), field.name, &value), QUOREL_OK);
        EXPECT_EQ(value, listed.high) << "a refused value was taken";
    }
    quorel_setting none{};
    EXPECT_FALSE(quorel_setting_at(index, &none));
    EXPECT_FALSE(quorel_setting_at(0, nullptr));
}

TEST(CInterface, AStreamThatNoPathTakesIsRefusedWithItsReason)
{
    quorel_effect* effect = nullptr;
    char why[QUOREL_TEXT] = "";
    EXPECT_EQ(quorel_create_speaker(9, mask, frames, rate, &effect, why), QUOREL_REFUSED);
    EXPECT_STREQ(why, "SignalPath: Illegal channel count");
    EXPECT_EQ(effect, nullptr);
    EXPECT_EQ(quorel_create_speaker(0xFFFFFFFF, mask, frames, rate, &effect, why), QUOREL_REFUSED);
    EXPECT_EQ(quorel_create_speaker(8, 0x3, frames, rate, &effect, why), QUOREL_REFUSED);
    EXPECT_STREQ(why, "quorel::SpeakerPath<8,float>::SpeakerPath: number of active channels in channelMask does not match CH_IN");
    EXPECT_EQ(quorel_create_microphone(1, frames, 44100, &effect, nullptr), QUOREL_REFUSED);
    EXPECT_EQ(quorel_create_speaker(8, mask, frames, rate, nullptr, why), QUOREL_BAD_ARGUMENT);
    EXPECT_STREQ(why, "the pointer to the effect is null");
    EXPECT_EQ(quorel_create_microphone(1, frames, rate, nullptr, nullptr), QUOREL_BAD_ARGUMENT);
}

TEST(CInterface, ABlockThatIsRefusedLeavesTheEffectAlive)
{
    const Effect effect = speaker();
    quorel_set(effect.get(), "Settings", 1);
    quorel_set(effect.get(), "Reverb", 120);
    const std::vector<float> in = noise(frames * 8, 1);
    std::vector<float> out(frames * 8);
    EXPECT_EQ(quorel_process(effect.get(), in.data(), out.data(), 480), QUOREL_OK);
    EXPECT_STREQ(quorel_error(effect.get()), "");
    EXPECT_EQ(quorel_process(effect.get(), in.data(), out.data(), 48), QUOREL_REFUSED); // a pre-delay's own length
    EXPECT_STRNE(quorel_error(effect.get()), "");
    EXPECT_EQ(quorel_process(effect.get(), in.data(), out.data(), 480), QUOREL_OK);
}

TEST(CInterface, BadArgumentsAreToldApart)
{
    const Effect effect = speaker();
    std::vector<float> block(frames * 8);
    float levels[QUOREL_LEVELS];
    std::int32_t value = 0;
    EXPECT_EQ(quorel_process(effect.get(), block.data(), block.data(), frames + 1), QUOREL_BAD_ARGUMENT);
    EXPECT_STREQ(quorel_error(effect.get()), "the block has more frames than the effect was created for");
    EXPECT_EQ(quorel_process(effect.get(), nullptr, block.data(), frames), QUOREL_BAD_ARGUMENT);
    EXPECT_EQ(quorel_process(effect.get(), block.data(), nullptr, frames), QUOREL_BAD_ARGUMENT);
    EXPECT_STREQ(quorel_error(effect.get()), "a block is null");
    EXPECT_EQ(quorel_set(effect.get(), "Loudness", 1), QUOREL_UNKNOWN_NAME);
    EXPECT_STREQ(quorel_error(effect.get()), "there is no setting of this name");
    EXPECT_EQ(quorel_set(effect.get(), nullptr, 1), QUOREL_BAD_ARGUMENT);
    EXPECT_EQ(quorel_get(effect.get(), "Loudness", &value), QUOREL_UNKNOWN_NAME);
    EXPECT_EQ(quorel_get(effect.get(), "Reverb", nullptr), QUOREL_BAD_ARGUMENT);
    EXPECT_EQ(quorel_get(effect.get(), nullptr, &value), QUOREL_BAD_ARGUMENT);
    EXPECT_EQ(quorel_levels(effect.get(), levels), QUOREL_NO_LEVELS);
    EXPECT_EQ(quorel_levels(microphone().get(), nullptr), QUOREL_BAD_ARGUMENT);

    EXPECT_EQ(quorel_process(nullptr, block.data(), block.data(), frames), QUOREL_BAD_ARGUMENT);
    EXPECT_EQ(quorel_set(nullptr, "Reverb", 1), QUOREL_BAD_ARGUMENT);
    EXPECT_EQ(quorel_get(nullptr, "Reverb", &value), QUOREL_BAD_ARGUMENT);
    EXPECT_EQ(quorel_levels(nullptr, levels), QUOREL_BAD_ARGUMENT);
    EXPECT_EQ(quorel_output_channels(nullptr), 0U);
    EXPECT_STREQ(quorel_error(nullptr), "");
    quorel_destroy(nullptr);
}

TEST(CInterface, EveryStatusHasATextOfItsOwn)
{
    std::vector<std::string> texts;
    for (int status = QUOREL_OK; status <= QUOREL_NO_MEMORY + 1; ++status)
        texts.emplace_back(quorel_status_text(static_cast<quorel_status>(status)));
    EXPECT_EQ(texts.back(), "unknown status");
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(std::unique(texts.begin(), texts.end()), texts.end());
}

TEST(CInterface, NothingBesideCreationAllocates)
{
    const Effect render = speaker();
    const Effect capture = microphone();
    std::vector<float> block = noise(frames * 8, 1);
    std::vector<float> out(frames * 8);
    float levels[QUOREL_LEVELS];
    std::int32_t value = 0;
    const std::uint64_t before = quorel::allocationCount();
    for (int i = 0; i < 4; ++i) {
        quorel_set(render.get(), "Settings", i);
        quorel_set(render.get(), "Reverb", 200 * (i % 2));
        quorel_set(render.get(), "Reverb", 256); // refused
        quorel_get(render.get(), "Reverb", &value);
        quorel_process(render.get(), block.data(), out.data(), frames);
        quorel_process(render.get(), block.data(), out.data(), frames + 1); // refused
        quorel_set(capture.get(), "MicNR", i % 2);
        quorel_set(capture.get(), "levelsEnabled", 1);
        quorel_process(capture.get(), block.data(), out.data(), frames);
        quorel_levels(capture.get(), levels);
    }
    EXPECT_EQ(quorel::allocationCount(), before);
}

TEST(CInterface, WithoutMemoryNoEffectIsMadeAndNothingIsLost)
{
    quorel_effect* none = nullptr;
    speaker(); // what is made once is made, and what a thread's first exception leaves behind, too
    EXPECT_EQ(quorel_create_speaker(9, mask, frames, rate, &none, nullptr), QUOREL_REFUSED);
    std::uint64_t number = 0;
    std::uint64_t refused = 0;
    for (bool reached = true; reached;) {
        quorel_effect* effect = nullptr;
        char why[QUOREL_TEXT] = "";
        const std::int64_t before = quorel::blocksInUse();
        quorel::failAllocation(++number);
        const quorel_status status = quorel_create_speaker(2, 0x3, frames, rate, &effect, why);
        reached = quorel::failAllocation(0);
        if (status != QUOREL_OK) { // a path does without some of them
            ++refused;
            EXPECT_EQ(status, QUOREL_NO_MEMORY) << number << ": " << why;
            EXPECT_EQ(effect, nullptr);
            EXPECT_STREQ(why, "there is no memory left");
        }
        quorel_destroy(effect);
        EXPECT_EQ(quorel::blocksInUse(), before) << number;
    }
    EXPECT_GT(refused, 10U); // of the many allocations that a path makes
}

} // namespace
