// SPDX-License-Identifier: MIT
#include "speaker/compressor_tables.h"
#include "stages/compressor.h"

#include "tests/speaker/cases.h"

#include <cmath>
#include <limits>
#include <map>
#include <utility>

namespace quorel {
namespace {

static_assert(std::is_nothrow_move_constructible_v<Compressor<2>> && std::is_nothrow_move_assignable_v<Compressor<2>>);
static_assert(!std::is_copy_constructible_v<Compressor<2>> && !std::is_copy_assignable_v<Compressor<2>>);

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

template <std::size_t C>
Compressor<C> limiter()
{
    return Compressor<C>(renderAttack, renderRelease, renderCurve);
}

// The definition, frame by frame over an ordered map.
template <std::size_t C>
class Definition {
public:
    Definition(float attack, float release, std::span<const GainPoint> points) : attack(attack), release(release)
    {
        for (const GainPoint& point : points)
            curve.emplace(point.level, Record{point.gain, 0.0F}); // keeps the first of a repeated level
        for (auto next = std::next(curve.begin()); next != curve.end(); ++next) {
            const auto at = std::prev(next);
            at->second.slope = (next->second.gain - at->second.gain) / (next->first - at->first);
        }
    }

    void process(const Buffer<float, C>& in, Buffer<float, C>& out)
    {
        for (std::uint64_t i = 0; i < in.size(); ++i) {
            float peak = 0.0F;
            for (std::size_t c = 0; c < C; ++c) {
                const float x = std::fabs(in.channel(c)[i]);
                float k = attack;
                if (envelope[c] > x)
                    k = release;
                envelope[c] = envelope[c] + k * (x - envelope[c]);
                if (envelope[c] > peak)
                    peak = envelope[c];
            }
            const float g = gainFor(peak);
            for (std::size_t c = 0; c < C; ++c)
                out.channel(c)[i] = g * in.channel(c)[i];
        }
        out.setSize(in.size());
    }

    [[gnu::noinline]] float gainFor(float level) const // inlined, it makes gcc warn about an empty map
    {
        const auto above = curve.upper_bound(level);
        if (above == curve.begin())
            return above->second.gain;
        const auto& [key, record] = *std::prev(above);
        return above == curve.end() ? record.gain : (level - key) * record.slope + record.gain;
    }

private:
    struct Record {
        float gain;
        float slope;
    };

    float attack;
    float release;
    std::array<float, C> envelope{};
    std::map<float, Record> curve;
};

// --- Contract --------------------------------------------------------------------------------------------------------

TEST(Compressor, AnOutBufferThatIsTooSmallIsRefusedAndNothingChanges)
{
    auto stage = limiter<2>();
    auto untouched = limiter<2>();
    Buffer<float, 2> loud(48);
    Buffer<float, 2> small(32);
    fillWith(loud, 33, 10.0F);
    fillWith(small, 5, 7.0F);
    EXPECT_EQ((failureText<std::invalid_argument>([&] { stage.process(loud, small); })), "Compressor: out buffer too small");
    EXPECT_EQ(small.size(), 5U);
    EXPECT_EQ(small.channel(0)[0], 7.0F);

    Buffer<float, 2> out(48);
    Buffer<float, 2> expected(48);
    stage.process(loud, out);
    untouched.process(loud, expected);
    EXPECT_TRUE(sameBits(out, expected));
}

TEST(Compressor, ABufferWithoutStorageIsRefusedEvenForAnEmptyBlock)
{
    auto stage = limiter<2>();
    Buffer<float, 2> moved(16);
    Buffer<float, 2> buffer(std::move(moved));
    EXPECT_EQ((failureText<UninitializedBuffer>([&] { stage.process(moved, buffer); })), "Buffer not initialized");
    EXPECT_EQ((failureText<UninitializedBuffer>([&] { stage.process(buffer, moved); })), "Buffer not initialized");
}

TEST(Compressor, AnEmptyBlockPassesAndSetsTheSizeToZero)
{
    auto stage = limiter<2>();
    const Buffer<float, 2> in(16);
    Buffer<float, 2> out(16);
    out.setSize(9);
    stage.process(in, out);
    EXPECT_EQ(out.size(), 0U);
}

TEST(Compressor, ACurveWithoutPointsIsRefused)
{
    EXPECT_EQ((failureText<std::invalid_argument>([] { Compressor<2>(0.5F, 0.5F, {}); })), "Compressor: gain curve is empty");
}

TEST(Compressor, TheBlockMayBeProcessedInPlace)
{
    forChannelCounts([]<std::size_t C>() {
        auto stage = limiter<C>();
        auto inPlace = limiter<C>();
        Noise noise(1);
        Buffer<float, C> in(64);
        noise.fill(in, 61, 3.0F);
        Buffer<float, C> out(64);
        stage.process(in, out);
        inPlace.process(in, in);
        EXPECT_TRUE(sameBits(in, out));
    });
}

TEST(Compressor, APaddedBufferGivesItsFramesBehindTheHistory)
{
    auto padded = limiter<2>();
    auto plain = limiter<2>();
    Noise noise(2);
    PaddedBuffer<2> in(64, 16);
    noise.fill(in, 16 + 40, 3.0F);
    Buffer<float, 2> frames(64);
    for (std::size_t c = 0; c < 2; ++c)
        std::copy_n(in.channel(c) + 16, 40, frames.channel(c));
    frames.setSize(40);

    Buffer<float, 2> out(48);
    Buffer<float, 2> expected(48);
    padded.process(in, out);
    plain.process(frames, expected);
    EXPECT_TRUE(sameBits(out, expected));

    in.setSize(16);
    padded.process(in, out);
    EXPECT_EQ(out.size(), 0U);
}

TEST(Compressor, AMovedCompressorGoesOnWhereItStood)
{
    auto stage = limiter<2>();
    auto whole = limiter<2>();
    Noise noise(3);
    Buffer<float, 2> in(512);
    noise.fill(in, 500, 5.0F);
    Buffer<float, 2> out(512);
    Buffer<float, 2> expected(512);
    stage.process(in, out);
    whole.process(in, expected);

    Compressor<2> moved(std::move(stage));
    moved.process(in, out);
    whole.process(in, expected);
    EXPECT_TRUE(sameBits(out, expected));
}

// --- The curve -------------------------------------------------------------------------------------------------------

TEST(Compressor, ALevelThatEqualsAKeyReturnsThatPointsGain)
{
    const auto stage = limiter<2>();
    for (const GainPoint& point : renderCurve)
        EXPECT_EQ(stage.gainFor(point.level), point.gain) << point.level;

    // The segment before would end at 1 + (1e-10 - 1) = 0.
    const std::array steep = std::to_array<GainPoint>({{1.0F, 1.0F}, {2.0F, 1e-10F}, {3.0F, 1.0F}});
    EXPECT_EQ((Compressor<1>(0.5F, 0.5F, steep).gainFor(2.0F)), 1e-10F);
}

TEST(Compressor, Level100ReturnsTheLastGain)
{
    EXPECT_EQ(limiter<2>().gainFor(100.0F), 0.0199526232F);
}

TEST(Compressor, TheGainIsHeldConstantOutsideTheCurve)
{
    const std::array curve = std::to_array<GainPoint>({{2.0F, 0.5F}, {4.0F, 0.25F}});
    const Compressor<1> stage(0.5F, 0.5F, curve);
    for (const float below : {-infinity, -1.0F, 0.0F, std::nextafter(2.0F, 0.0F)})
        EXPECT_EQ(stage.gainFor(below), 0.5F) << below;
    for (const float above : {4.0F, 5.0F, std::numeric_limits<float>::max(), infinity})
        EXPECT_EQ(stage.gainFor(above), 0.25F) << above;
    EXPECT_EQ(stage.gainFor(3.0F), 0.375F);
}

TEST(Compressor, PointsMayComeInAnyOrderAndARepeatedLevelKeepsTheFirst)
{
    const std::array curve = std::to_array<GainPoint>({{4.0F, 0.25F}, {1.0F, 1.0F}, {4.0F, 9.0F}, {2.0F, 0.5F}, {1.0F, 8.0F}});
    const Compressor<1> stage(0.5F, 0.5F, curve);
    EXPECT_EQ(stage.gainFor(0.5F), 1.0F);
    EXPECT_EQ(stage.gainFor(1.5F), 0.75F);
    EXPECT_EQ(stage.gainFor(2.0F), 0.5F);
    EXPECT_EQ(stage.gainFor(3.0F), 0.375F);
    EXPECT_EQ(stage.gainFor(4.0F), 0.25F);

    std::vector<GainPoint> many; // more than a sort keeps in order by chance
    for (int i = 0; i < 200; ++i)
        many.push_back({static_cast<float>((i * 7) % 5), static_cast<float>(i)});
    const Compressor<1> first(0.5F, 0.5F, many);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(first.gainFor(many[static_cast<std::size_t>(i)].level), static_cast<float>(i));
}

TEST(Compressor, ACurveOfOnePointIsOneGain)
{
    const std::array curve = std::to_array<GainPoint>({{1.0F, 0.5F}});
    const Compressor<1> stage(0.5F, 0.5F, curve);
    for (const float level : {0.0F, 1.0F, 2.0F})
        EXPECT_EQ(stage.gainFor(level), 0.5F);
}

TEST(Compressor, TheLookupIsThatOfAnOrderedMap)
{
    const auto stage = limiter<1>();
    const Definition<1> definition(renderAttack, renderRelease, renderCurve);
    const auto expectSame = [&](float level) { EXPECT_EQ(bits(stage.gainFor(level)), bits(definition.gainFor(level))) << level; };
    for (const GainPoint& point : renderCurve)
        for (const float level : {std::nextafter(point.level, 0.0F), point.level, std::nextafter(point.level, 100.0F)})
            expectSame(level);
    Noise noise(4);
    for (int i = 0; i < 10000; ++i)
        expectSame(std::exp(2.0F * noise()));
    expectSame(nan);
}

// --- Truth -----------------------------------------------------------------------------------------------------------

TEST(Compressor, AConstantHalfPassesUnchangedAtAllTimes)
{
    auto stage = limiter<2>();
    Buffer<float, 2> in(480);
    Buffer<float, 2> out(480);
    fillWith(in, 480, 0.5F);
    for (int block = 0; block < 100; ++block) {
        stage.process(in, out);
        ASSERT_TRUE(sameBits(out, in));
    }
}

// The gain of the render curve at a level, in double precision.
double exactGain(double level)
{
    const GainPoint* next = renderCurve.data();
    const GainPoint* end = next + renderCurve.size();
    while (next != end && static_cast<double>(next->level) <= level)
        ++next;
    if (next == renderCurve.data())
        return next->gain;
    const GainPoint& at = *(next - 1);
    if (next == end)
        return at.gain;
    const double slope = (double{next->gain} - double{at.gain}) / (double{next->level} - double{at.level});
    return double{at.gain} + (level - double{at.level}) * slope;
}

// A constant x from silence raises the envelope to x * (1 - (1 - attack)^n). Each frame rounds the envelope by at most
// 3 * 2^-24 * 2 (difference, product, sum), and what was added before shrinks by 1 - attack, so that the sum stays below
// 3.6e-7 / attack = 1.8e-5. The steepest segment (-0.794) turns that into 1.4e-5 of gain, 2.8e-5 of output.
TEST(Compressor, AConstantTwoFollowsTheAttackTimeAndSettlesJustAboveOne)
{
    auto stage = limiter<2>();
    Buffer<float, 2> in(1200);
    Buffer<float, 2> out(1200);
    fillWith(in, 1200, 2.0F);
    stage.process(in, out);
    const double attack = -std::expm1(-1.0 / 48.0); // one millisecond
    for (std::uint64_t i = 0; i < 1200; ++i) {
        const double envelope = 2.0 * (1.0 - std::pow(1.0 - attack, static_cast<double>(i + 1)));
        ASSERT_NEAR(out.channel(0)[i], 2.0 * exactGain(envelope), 2.8e-5) << i;
        ASSERT_EQ(out.channel(0)[i], out.channel(1)[i]);
    }
    // 2.0 lies 0.0047 above the breakpoint at 6 dB: 2 * (0.501187205 - 0.0047377 * 0.1995261) = 1.0004838.
    EXPECT_NEAR(out.channel(0)[1199], 1.0004838, 2e-6);
}

// From 2 the envelope falls to 2 * (1 - release)^n, after 10080 frames 2 * exp(-10080 / 19200) = 1.1831, where the gain is
// 1 - 0.1831 * 0.7943 = 0.8545. Each frame rounds the envelope by at most 2^-24, half the last place below 2, and the step by
// far less: 6.1e-4 in all, which the slope of 0.794 and the sample of 0.5 turn into 2.5e-4 of output.
TEST(Compressor, SilenceIsZeroAtOnceAndANewSignalIsStillAttenuated)
{
    auto stage = limiter<2>();
    Buffer<float, 2> block(480);
    for (int i = 0; i < 10; ++i) {
        fillWith(block, 480, 2.0F);
        stage.process(block, block);
    }
    const auto silentBlocks = [&](int count) {
        for (int i = 0; i < count; ++i) {
            fillWith(block, 480, 0.0F);
            stage.process(block, block);
            for (std::uint64_t k = 0; k < 480; ++k)
                ASSERT_EQ(block.channel(0)[k], 0.0F);
        }
    };
    silentBlocks(21);
    fillWith(block, 1, 0.5F);
    stage.process(block, block);
    const double envelope = 2.0 * std::exp(-10080.0 / 19200.0);
    EXPECT_NEAR(block.channel(0)[0], 0.5 * exactGain(envelope), 2.5e-4);

    silentBlocks(20); // 2 * exp(-19680 / 19200) = 0.7176
    fillWith(block, 1, 0.5F);
    stage.process(block, block);
    EXPECT_EQ(block.channel(0)[0], 0.5F);
}

// Samples of every kind: noise at many levels, zeros of both signs, denormal and huge numbers, and, where asked for,
// infinities and not-a-number.
template <std::size_t C>
void fillWithEverything(Noise& noise, Buffer<float, C>& buffer, std::uint64_t n, bool finite)
{
    constexpr std::array special = {0.0F, -0.0F, 1e-45F, -1e-40F, 1.2e-38F, 1e30F, -3e38F, infinity, -infinity, nan};
    const float scale = std::exp(2.0F * noise());
    noise.fill(buffer, n, scale);
    if (noise.between(0, 3) == 0)
        for (std::size_t c = 0; c < C; ++c)
            for (int k = 0; k < 3 && n > 0; ++k)
                buffer.channel(c)[noise.between(0, n - 1)] = special[noise.between(0, finite ? 6 : special.size() - 1)];
}

TEST(Compressor, EveryBitIsThatOfTheDefinitionFrameByFrame)
{
    const std::array gate = std::to_array<GainPoint>({{0.0316227749F, 0.00316227763F}, {0.0630957335F, 1.0F}});
    const std::array single = std::to_array<GainPoint>({{0.5F, 0.25F}});
    const std::array<std::span<const GainPoint>, 3> curves = {renderCurve, gate, single};
    forChannelCounts([&]<std::size_t C>() {
        for (std::uint32_t seed = 0; seed < 24; ++seed) {
            SCOPED_TRACE("seed " + std::to_string(seed));
            Noise noise(seed);
            const auto curve = curves[seed % 3];
            const float attack = seed % 2 == 0 ? renderAttack : 0.5F;
            const float release = seed % 2 == 0 ? renderRelease : 0.01F;
            Compressor<C> stage(attack, release, curve);
            Definition<C> definition(attack, release, curve);
            Buffer<float, C> in(512);
            Buffer<float, C> out(512);
            Buffer<float, C> expected(512);
            for (int block = 0; block < 40; ++block) {
                fillWithEverything(noise, in, noise.between(0, 512), seed % 4 < 2);
                stage.process(in, out);
                definition.process(in, expected);
                ASSERT_TRUE(sameBits(out, expected)) << "block " << block;
            }
        }
    });
}

// --- Invariants ------------------------------------------------------------------------------------------------------

TEST(Compressor, AStreamMayBeCutIntoBlocksAnywhere)
{
    forChannelCounts([]<std::size_t C>() {
        auto whole = limiter<C>();
        auto pieces = limiter<C>();
        Noise noise(5);
        Buffer<float, C> in(4096);
        noise.fill(in, 4000, 2.0F);
        Buffer<float, C> expected(4096);
        whole.process(in, expected);

        Buffer<float, C> block(512);
        for (std::uint64_t at = 0; at < 4000;) {
            const auto n = std::min(noise.between(0, 500), 4000 - at);
            for (std::size_t c = 0; c < C; ++c)
                std::copy_n(in.channel(c) + at, n, block.channel(c));
            block.setSize(n);
            pieces.process(block, block);
            for (std::size_t c = 0; c < C; ++c)
                ASSERT_TRUE(std::equal(block.channel(c), block.channel(c) + n, expected.channel(c) + at));
            at += n;
        }
    });
}

TEST(Compressor, TheLoudestChannelSetsTheGainOfAll)
{
    forChannelCounts([]<std::size_t C>() {
        for (std::size_t loudest = 0; loudest < C; ++loudest) {
            auto stage = limiter<C>();
            auto alone = limiter<1>();
            Buffer<float, C> in(480);
            fillWith(in, 480, 0.25F);
            Buffer<float, 1> loud(480);
            fillWith(loud, 480, 4.0F);
            std::copy_n(loud.channel(0), 480, in.channel(loudest));
            stage.process(in, in);
            alone.process(loud, loud);
            for (std::size_t c = 0; c < C; ++c)
                for (std::uint64_t i = 0; i < 480; ++i) // 0.25 is 4.0 over a power of two: the same product
                    ASSERT_EQ(in.channel(c)[i], c == loudest ? loud.channel(0)[i] : loud.channel(0)[i] / 16.0F);
        }
    });
}

TEST(Compressor, AChannelThatWasNotANumberOnceNoLongerCountsForTheGain)
{
    auto stage = limiter<2>();
    auto other = limiter<1>();
    Buffer<float, 2> in(480);
    Buffer<float, 1> loud(480);
    fillWith(in, 480, 4.0F);
    fillWith(loud, 480, 4.0F);
    std::fill_n(in.channel(0), 480, 50.0F);
    in.channel(0)[0] = nan;
    stage.process(in, in);
    other.process(loud, loud);
    EXPECT_TRUE(std::isnan(in.channel(0)[0]));
    for (std::uint64_t i = 1; i < 480; ++i) {
        ASSERT_EQ(in.channel(1)[i], loud.channel(0)[i]);
        ASSERT_EQ(in.channel(0)[i], loud.channel(0)[i] / 4.0F * 50.0F);
    }
    // With no envelope left that is a number, the level is 0 and the gain that of the curve's front.
    fillWith(in, 480, nan);
    stage.process(in, in);
    fillWith(in, 480, 8.0F);
    stage.process(in, in);
    EXPECT_EQ(in.channel(0)[479], 8.0F);
    EXPECT_EQ(in.channel(1)[479], 8.0F);
}

// This curve tells a denormal envelope from none: gain 2 from 1.1e-42 on, else 1. A probe of 1e-43 raises the envelope to
// attack * 1e-43 at most. Left to itself the envelope would stop near 2^-150 / release = 1.3e-41, where its step rounds to 0.
TEST(Compressor, AMinuteOfSilenceLeavesNoDenormalEnvelope)
{
    const std::array detector = std::to_array<GainPoint>({{1e-42F, 1.0F}, {1.1e-42F, 2.0F}});
    Compressor<2> stage(renderAttack, renderRelease, detector);
    Definition<2> definition(renderAttack, renderRelease, detector);
    Noise noise(6);
    Buffer<float, 2> block(480);
    Buffer<float, 2> plain(480);
    for (int i = 0; i < 1000; ++i) { // ten seconds
        noise.fill(block, 480, 0.5F);
        definition.process(block, plain);
        stage.process(block, block);
    }
    int subnormal = 0;
    for (int i = 0; i < 6000; ++i) {
        fillWith(block, 480, 0.0F);
        definition.process(block, plain);
        stage.process(block, block);
        for (std::uint64_t k = 0; k < 480; ++k)
            subnormal += static_cast<int>(isSubnormal(block.channel(0)[k]));
    }
    EXPECT_EQ(subnormal, 0);
    fillWith(block, 1, 1e-43F);
    definition.process(block, plain);
    stage.process(block, block);
    EXPECT_EQ(block.channel(0)[0], 1e-43F);
    EXPECT_EQ(plain.channel(0)[0], 2.0F * 1e-43F) << "the probe finds nothing where there is something";
}

TEST(Compressor, TheLimitedLevelRisesTo1Point0133AtMost)
{
    double highest = 0.0;
    for (double level = 1.0; level < 50.1; level += 1e-4)
        highest = std::max(highest, level * exactGain(level));
    EXPECT_NEAR(highest, 1.0133, 5e-5);
    EXPECT_NEAR(20.0 * std::log10(highest), 0.115, 5e-4);
}

} // namespace
} // namespace quorel
