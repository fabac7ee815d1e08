// SPDX-License-Identifier: MIT
#include "live/effect_stream.h"

#include "tests/live/steered.h"

#include <cmath>
#include <limits>

namespace quorel {
namespace {

class EffectStreams : public Steered {
protected:
    // What a stream gives for the rows in calls of `quantum` frames.
    Rows through(EffectStream& stream, const Rows& in, std::size_t outputs, std::uint32_t quantum)
    {
        Rows out(outputs, in.rows[0].size());
        for (std::size_t done = 0; done + quantum <= in.rows[0].size(); done += quantum)
            stream.process(in.in(done).data(), out.out(done).data(), quantum);
        return out;
    }
};

TEST_F(EffectStreams, TakeWhatIsNotFiniteOrTooLoudAsSilence)
{
    const auto stream = streamOf(speaker, {480, 0});
    through(*stream, Rows(8, 480), 2, 480); // the surround effect goes off over the first block
    Rows in(8, 480);
    in.rows[0][1] = std::numeric_limits<float>::quiet_NaN();
    in.rows[0][2] = std::numeric_limits<float>::infinity();
    in.rows[2][3] = -0x1.000002p20F;
    in.rows[2][4] = 0x1p20F; // the loudest that is taken as it is
    const Rows out = through(*stream, in, 2, 480);
    EXPECT_EQ(status.badSamples, 3U);
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(out.rows[0][i], 0.0F);
    EXPECT_GT(out.rows[0][4], 0.0F);
    for (const float y : out.rows[0])
        EXPECT_TRUE(std::isfinite(y));
}

TEST_F(EffectStreams, GiveSilenceForARefusedBlockAndTellWhy)
{
    const Rows in = noise(1, 480);
    const auto stream = streamOf(microphone, {240, 0});
    EXPECT_EQ(through(*stream, in, 1, 480).rows, in.rows);
    set([](SettingsRecord& record) { record.micEq = 3; });
    EXPECT_EQ(through(*stream, in, 1, 480).rows, Rows(1, 480).rows);
    EXPECT_EQ(status.refused, 2U);
    EXPECT_EQ(status.refusal.read(), "MicrophonePath: EQ select index is out of bounds");

    set([](SettingsRecord&) {});
    EXPECT_EQ(through(*stream, in, 1, 480).rows, in.rows);
    EXPECT_EQ(status.refused, 2U);
}

TEST_F(EffectStreams, FadeTheMicrophoneItselfInOverOneBlock)
{
    set([](SettingsRecord& record) { record.MicNR = 1; }); // it begins silent: what is heard is the bypass
    const Rows in(1, 480, 0.25F);
    const auto stream = streamOf(microphone, {240, 0});
    bypass = true;
    const SignalPath path(SignalPath::Microphone{}, 1, 0, 240, 48000);
    path->settings()->MicNR = 1;
    std::vector<float> x(240, 0.25F);
    std::vector<float> y(240);
    path->process(x.data(), 240, y.data(), 240);

    const Rows out = through(*stream, in, 1, 240);
    for (std::size_t i = 0; i < 240; ++i) {
        const float share = static_cast<float>(i + 1) / 240;
        // Three roundings of numbers below 1, each of at most 2^-25.
        ASSERT_NEAR(out.rows[0][i], (1 - share) * y[i] + share * 0.25F, 0x3p-25) << i;
    }
    for (std::size_t i = 240; i < 480; ++i)
        ASSERT_EQ(out.rows[0][i], 0.25F);
}

TEST_F(EffectStreams, PutTheStereoDownMixInTheEffectsPlace)
{
    set([](SettingsRecord& record) { record.Settings = 1; });
    Rows in(8, 960);
    for (std::size_t c = 0; c < 8; ++c)
        in.rows[c].assign(960, 0.01F * static_cast<float>(c + 1));
    bypass = true; // from the start: no fade
    const auto stream = streamOf(speaker, {480, 0});
    const Rows out = through(*stream, in, 2, 480);
    // front left, centre, woofer, back left, side left; then right. Eight products and sums of numbers below 1.
    const double left = 0.8 * (0.01 + 0.5 * 0.03 + 0.707 * (0.04 + 0.05 + 0.07));
    const double right = 0.8 * (0.02 + 0.5 * 0.03 + 0.707 * (0.04 + 0.06 + 0.08));
    for (std::size_t i = 0; i < 960; ++i) {
        ASSERT_NEAR(out.rows[0][i], left, 0x1p-20) << i;
        ASSERT_NEAR(out.rows[1][i], right, 0x1p-20) << i;
    }
}

TEST_F(EffectStreams, LeaveTheEffectAsItIsBeneathABypass)
{
    set([](SettingsRecord& record) {
        record.Settings = 1;
        record.Reverb = 120;
    });
    const Rows in = noise(8, 4800);
    const auto plain = streamOf(speaker, {480, 0});
    const Rows expected = through(*plain, in, 2, 480);

    const auto stream = streamOf(speaker, {480, 0});
    for (std::size_t done = 0; done < 4800; done += 480) {
        bypass = done == 480 || done == 960;
        Rows out(2, 480);
        stream->process(in.in(done).data(), out.out().data(), 480);
        for (std::size_t i = 0; i < 480 && (done < 480 || done > 1440); ++i)
            ASSERT_EQ(out.rows[0][i], expected.rows[0][done + i]) << done + i;
    }
}

TEST_F(EffectStreams, WriteTheMicrophonesLevelsAfterEveryBlock)
{
    set([](SettingsRecord& record) { record.levelsEnabled = 1; });
    const auto stream = streamOf(microphone, {240, 0});
    control.block->levels.fill(7.0F);
    through(*stream, noise(1, 24000), 1, 480);
    for (const float level : control.block->levels) {
        EXPECT_GE(level, -60.0F);
        EXPECT_LE(level, 0.0F);
    }
    // A render stream reports none.
    control.block->levels.fill(7.0F);
    through(*streamOf(speaker, {480, 0}), noise(8, 480), 2, 480);
    EXPECT_EQ(control.block->levels[0], 7.0F);
}

TEST_F(EffectStreams, ServeWhatNeedsNoMoreDelay)
{
    const auto slices = streamOf(speaker, {128, 0});
    EXPECT_TRUE(slices->serves(128, false));
    EXPECT_TRUE(slices->serves(1024, false));
    EXPECT_FALSE(slices->serves(192, false));
    EXPECT_FALSE(slices->serves(128, true));
    const auto gathered = streamOf(speaker, {256, 255});
    EXPECT_TRUE(gathered->serves(470, true));
    EXPECT_TRUE(gathered->serves(1024, false));
}

TEST(SharedText, IsCutWhereItIsTooLong)
{
    SharedText text;
    EXPECT_EQ(text.read(), "");
    text.write(std::string(200, 'x').c_str());
    EXPECT_EQ(text.read(), std::string(127, 'x'));
    text.write("short");
    EXPECT_EQ(text.read(), "short");
}

} // namespace
} // namespace quorel
