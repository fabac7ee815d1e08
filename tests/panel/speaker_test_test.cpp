// SPDX-License-Identifier: MIT
#include "panel/speaker_test.h"

#include "panel/spoken_names.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace quorel {
namespace {

// The channels that sound, in the order in which they begin to.
std::vector<std::size_t> turnsOf(const platform::Sound& sound, std::size_t channels)
{
    std::vector<std::size_t> turns;
    for (std::size_t i = 0; i < sound.samples.size(); ++i)
        if (sound.samples[i] != 0 && (turns.empty() || turns.back() != i % channels))
            turns.push_back(i % channels);
    return turns;
}

TEST(SpeakerTest, EachSpeakerSpeaksAloneInItsTurn)
{
    const std::vector<std::size_t> eight = {0, 1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(turnsOf(speakerTest(0x63F), 8), eight);
    EXPECT_EQ(turnsOf(speakerTest(0x3), 2), (std::vector<std::size_t>{0, 1}));
    EXPECT_EQ(turnsOf(speakerTest(0x60F), 6), (std::vector<std::size_t>{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(turnsOf(speakerTest(0x103), 3), (std::vector<std::size_t>{0, 1})); // the centre behind is no speaker of the effect
}

TEST(SpeakerTest, TakesNoMaskForAllSpeakers)
{
    EXPECT_EQ(speakerTest(0).speakers, 0x63FU);
    EXPECT_EQ(speakerTest(0).samples, speakerTest(0x63F).samples);
}

// Side left is the fifth of a 5.1 stream with side speakers and the seventh of a 7.1 stream: its name is row 6 of the table.
TEST(SpeakerTest, SpeaksTheNameOfTheSpeaker)
{
    const auto& name = spokenNames.at(6);
    const platform::Sound sound = speakerTest(0x200);
    ASSERT_GE(sound.samples.size(), name.size());
    EXPECT_TRUE(std::equal(name.begin(), name.end(), sound.samples.begin()));
}

// What is cut at both ends leaves a name of a third of a second to two; half of full scale is its peak.
TEST(SpeakerTest, NamesAreSpokenAndEquallyLoud)
{
    for (const auto& name : spokenNames) {
        EXPECT_GT(name.size(), spokenFramesPerSecond / 3);
        EXPECT_LT(name.size(), 2 * spokenFramesPerSecond);
        int peak = 0;
        for (const std::int16_t sample : name)
            peak = std::max(peak, std::abs(sample));
        EXPECT_NEAR(peak, 0x7FFF / 2, 1);
    }
}

} // namespace
} // namespace quorel
